#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tests/support/generated_scene.h"
#include "tests/support/run_process.h"
#include "tools/scene/evaluation.h"
#include "tools/scene/png_io.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace fs = std::filesystem;

namespace {

// The raw input: every measured depth back-projected, as the particles start out.
std::vector<scene::Vec3> raw_points(const e2e::GeneratedScene& generated) {
  std::vector<scene::Vec3> points;
  for (const std::string& file : generated.view_files) {
    const scene::ViewFile view = scene::read_view_file(file);
    const scene::Png16 depth = scene::read_png_gray16(view.depth_path);
    for (int y = 0; y < depth.height; ++y)
      for (int x = 0; x < depth.width; ++x)
        if (const unsigned mm = depth.values[y * depth.width + x]; mm != 0)
          points.push_back(scene::back_project(view, x, y, mm / 1000.0));
  }
  return points;
}

}  // namespace

// A generated 16-view scene with depth noise, fused with the default settings (superpixels scaled
// to the smaller images): exactly the two models, accurate, complete, closer to the true surfaces
// than the noisy input, and both faces of the thin sheet. The support filters keep what at least
// three or four other views confirm, so the ring needs that many views on each surface.
TEST(DefaultRun, FusesAGeneratedSceneAccuratelyAndCompletely) {
  const fs::path root = fs::path(QUILLARA_TEST_TMP) / "default_run_16_views";
  fs::remove_all(root);
  const std::string out = (root / "model").string();
  scene::SceneOptions options;
  options.out_dir = (root / "scene").string();
  options.views = 16;
  options.width = 256;
  options.height = 192;
  options.noise = 0.001;
  const e2e::GeneratedScene generated = e2e::generate_scene(options);
  std::vector<std::string> args = {"--out-dir", out, "--depth-avg", generated.average_depth, "--superpixels", "800",
                                   "--"};
  args.insert(args.end(), generated.view_files.begin(), generated.view_files.end());
  const e2e::Result r = e2e::run(QUILLARA_BIN, root.string(), args);
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<scene::ModelPoint> model = scene::read_model_ply(out + "/model.ply");

  EXPECT_EQ(e2e::file_names(out), (std::vector<std::string>{"model.ply", "model_superpixel.ply"}));
  EXPECT_NE(r.out.find(" Filter particles,     radius = "), std::string::npos);
  // The closing summary: both models with their paths, and no advice, since most points were kept.
  const std::string summary = e2e::closing_summary(r.out);
  EXPECT_NE(summary.find("  model:            " + std::to_string(model.size()) + " points in " + out + "/model.ply, "),
            std::string::npos)
      << summary;
  EXPECT_EQ(std::count(summary.begin(), summary.end(), '\n'), 3) << summary;

  const scene::Evaluation e = scene::evaluate_model(generated.dir, model);
  std::cout << scene::format_evaluation(e);
  ASSERT_GT(e.points, 10000u);
  EXPECT_LT(e.accuracy.median, 0.5 * e.footprint);
  EXPECT_GT(e.completeness_2, 0.6);
  const scene::Accuracy raw = scene::measure_accuracy(scene::make_default_scene(), raw_points(generated), e.footprint);
  std::cout << "raw input: median " << 1000 * raw.median << " mm\n";
  EXPECT_LT(e.accuracy.median, raw.median);
  // The sheet, far thinner than the smoothing radius, keeps both faces, normals facing their side.
  for (int side : {0, 1}) {
    SCOPED_TRACE(side);
    EXPECT_GT(e.sheet.points[side], 100u);
    EXPECT_GT(e.sheet.facing_own_side[side], 0.9 * e.sheet.points[side]);
  }
}

// Support levels that nothing reaches empty both models; both files are still written, empty.
TEST(DefaultRun, EmptiedModelsAreStillWritten) {
  const fs::path root = fs::path(QUILLARA_TEST_TMP) / "default_run_empty";
  fs::remove_all(root);
  const e2e::GeneratedScene generated = e2e::generate_scene((root / "scene").string(), 2, 64, 48);
  const fs::path out = root / "model";
  const e2e::Result r = e2e::run(QUILLARA_BIN, root.string(),
                                 {"-o", out.string(), "--depth-avg", generated.average_depth, "--superpixels", "30",
                                  "--min-support-sp", "1e9", "--", generated.view_files[0], generated.view_files[1]});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_TRUE(scene::read_model_ply((out / "model_superpixel.ply").string()).empty());
  EXPECT_TRUE(scene::read_model_ply((out / "model.ply").string()).empty());
  EXPECT_NE(r.out.find("                   #particles = 0\n"), std::string::npos);
  EXPECT_TRUE(r.out.ends_with("\nThe model is empty: too few views confirm each surface at the support levels in "
                              "force (--min-support-sp 1e+09, --min-support 3); with few views try --visible-support "
                              "0.3, which asks each point only for a share of what the views that see it could "
                              "confirm, or lower levels, e.g. --min-support-sp 1 --min-support 1.\n"))
      << r.out;
}
