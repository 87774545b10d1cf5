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

// A generated 16-view scene with depth noise, fused once by the program with its default settings
// (superpixels scaled to the smaller images); the tests below look at what it wrote. The support
// filters keep what at least three or four other views confirm, so the ring needs that many views
// on each surface.
struct FusedScene {
  std::string scene_dir, out_dir;
  e2e::Result run;
  std::vector<scene::ModelPoint> model;
};

FusedScene fuse_scene() {
  FusedScene f;
  const fs::path root = fs::path(QUILLARA_TEST_TMP) / "default_run_16_views";
  fs::remove_all(root);
  f.out_dir = (root / "model").string();
  scene::SceneOptions options;
  options.out_dir = (root / "scene").string();
  options.views = 16;
  options.width = 256;
  options.height = 192;
  options.noise = 0.001;
  const e2e::GeneratedScene generated = e2e::generate_scene(options);
  f.scene_dir = generated.dir;
  std::vector<std::string> args = {"--out-dir", f.out_dir, "--depth-avg", generated.average_depth, "--superpixels",
                                   "800", "--"};
  args.insert(args.end(), generated.view_files.begin(), generated.view_files.end());
  f.run = e2e::run(QUILLARA_BIN, root.string(), args);
  if (f.run.status == 0) f.model = scene::read_model_ply(f.out_dir + "/model.ply");
  return f;
}

// The raw input: every measured depth back-projected, as the particles start out.
std::vector<scene::Vec3> raw_points(const std::string& scene_dir, int views) {
  std::vector<scene::Vec3> points;
  for (int v = 0; v < views; ++v) {
    const scene::ViewFile view = scene::read_view_file(scene_dir + "/" + scene::view_file_name(v));
    const scene::Png16 depth = scene::read_png_gray16(view.depth_path);
    for (int y = 0; y < depth.height; ++y)
      for (int x = 0; x < depth.width; ++x)
        if (const unsigned mm = depth.values[y * depth.width + x]; mm != 0)
          points.push_back(scene::back_project(view, x, y, mm / 1000.0));
  }
  return points;
}

void expect_exactly_the_two_models(const FusedScene& f) {
  EXPECT_EQ(e2e::file_names(f.out_dir), (std::vector<std::string>{"model.ply", "model_superpixel.ply"}));
  EXPECT_NE(f.run.out.find(" Filter particles,     radius = "), std::string::npos);
  // The closing summary: both models with their paths, and no advice, since most points were kept.
  const std::string summary = e2e::closing_summary(f.run.out);
  EXPECT_NE(summary.find("  model:            " + std::to_string(f.model.size()) + " points in " + f.out_dir +
                         "/model.ply, "),
            std::string::npos)
      << summary;
  EXPECT_EQ(std::count(summary.begin(), summary.end(), '\n'), 3) << summary;
}

// The model lies on the true surfaces, covers them, and is closer to them than the noisy input.
void expect_accurate_and_complete(const FusedScene& f) {
  const scene::Evaluation e = scene::evaluate_model(f.scene_dir, f.model);
  std::cout << scene::format_evaluation(e);
  ASSERT_GT(e.points, 10000u);
  EXPECT_LT(e.accuracy.median, 0.5 * e.footprint);
  EXPECT_GT(e.completeness_2, 0.6);

  const scene::Accuracy raw = scene::measure_accuracy(scene::make_default_scene(), raw_points(f.scene_dir, 16), e.footprint);
  std::cout << "raw input: median " << 1000 * raw.median << " mm\n";
  EXPECT_LT(e.accuracy.median, raw.median);

  // The sheet, far thinner than the smoothing radius, keeps both of its faces, and each face's
  // points have normals facing their own side.
  for (int side : {0, 1}) {
    SCOPED_TRACE(side);
    EXPECT_GT(e.sheet.points[side], 100u);
    EXPECT_GT(e.sheet.facing_own_side[side], 0.9 * e.sheet.points[side]);
  }
}

}  // namespace

// One run of the program on the 16-view scene, checked for its files, its accuracy and
// completeness, and the thin sheet.
TEST(DefaultRun, FusesAGeneratedSceneAccuratelyAndCompletely) {
  const FusedScene f = fuse_scene();
  ASSERT_EQ(f.run.status, 0) << f.run.err;
  expect_exactly_the_two_models(f);
  expect_accurate_and_complete(f);
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
