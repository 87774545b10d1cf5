// The quillara binary on generated scenes, end to end: the default run, and the runs with
// --backface-test and --preview, --visible-support, and --improve-cameras.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "src/app/scene_input.h"
#include "tests/support/generated_scene.h"
#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"
#include "formats/depth_png.h"
#include "image/png_io.h"
#include "tools/scene/evaluation.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace fs = std::filesystem;

namespace {

// Scene options for `views` views of width x height pixels in root/scene.
scene::SceneOptions scene_in(const fs::path& root, int views, int width, int height) {
  return e2e::scene_options((root / "scene").string(), views, width, height);
}

// quillara on the scene's views with its average depth, `superpixels` superpixels and `options`,
// writing to `out` and run from the directory above it.
e2e::Result quillara(const e2e::GeneratedScene& scene, const std::string& out, const std::string& superpixels,
                     const std::vector<std::string>& options = {}) {
  return e2e::run(QUILLARA_BIN, fs::path(out).parent_path().string(),
                  e2e::fusion_args({"-o", out}, scene.average_depth, superpixels, options, scene.view_files));
}

// The closing summary's number of lines: 3 without advice.
long summary_lines(const e2e::Result& r) {
  const std::string summary = e2e::closing_summary(r.out);
  return std::count(summary.begin(), summary.end(), '\n');
}

// The raw input: every measured depth back-projected, as the particles start out.
std::vector<scene::Vec3> raw_points(const e2e::GeneratedScene& generated) {
  std::vector<scene::Vec3> points;
  for (const std::string& file : generated.view_files) {
    const ViewFile view = read_view_file(file);
    const CMatrix<unsigned short> depth = read_depth_png(view.depth_path);
    for (int y = 0; y < depth.ySize; ++y)
      for (int x = 0; x < depth.xSize; ++x)
        if (const unsigned mm = depth(x, y); mm != 0) points.push_back(scene::back_project(view, x, y, mm / 1000.0));
  }
  return points;
}

// One preview per view, three panels of the view's size: the input on the left, and the rendered
// model and its normals where the input has depth.
void expect_preview_of_each_view(const e2e::GeneratedScene& generated, const fs::path& preview_dir) {
  for (std::size_t v = 0; v < generated.view_files.size(); ++v) {
    SCOPED_TRACE(v);
    const auto rgb = [](const std::string& path) {
      return png_io::read_png(path.c_str(), "test", png_io::Accept::Colour, "not an RGB image");
    };
    const ViewFile view = read_view_file(generated.view_files[v]);
    const png_io::PngRows input = rgb(view.image_path);
    const CMatrix<unsigned short> depth = read_depth_png(view.depth_path);
    const png_io::PngRows preview = rgb((preview_dir / ("view_0" + std::to_string(v) + ".png")).string());
    ASSERT_EQ(preview.width, 3 * input.width);
    ASSERT_EQ(preview.height, input.height);
    int with_depth = 0, drawn = 0, input_differs = 0;
    for (int y = 0; y < input.height; ++y)
      for (int x = 0; x < input.width; ++x) {
        const auto at = [&](int px, int c) { return preview.bytes[3 * (y * preview.width + px) + c]; };
        for (int c = 0; c < 3; ++c) input_differs += at(x, c) != input.bytes[3 * (y * input.width + x) + c];
        if (depth(x, y) == 0) continue;
        ++with_depth;
        const int m = input.width + x, n = 2 * input.width + x;
        drawn += (at(m, 0) | at(m, 1) | at(m, 2)) != 0 && (at(n, 0) | at(n, 1) | at(n, 2)) != 0;
      }
    EXPECT_EQ(input_differs, 0);
    EXPECT_GT(drawn, with_depth / 3) << drawn << " of " << with_depth;
  }
}

}  // namespace

// A 16-view scene with depth noise, fused with the default settings (superpixels scaled to the
// smaller images): exactly the two models, accurate, complete, closer to the true surfaces than the
// noisy input, and both faces of the thin sheet. The support filters keep what at least three or
// four other views confirm, so the ring needs that many views on each surface.
TEST(DefaultRun, FusesAGeneratedSceneAccuratelyAndCompletely) {
  const fs::path root = io_test::fresh_scratch_dir();
  scene::SceneOptions options = scene_in(root, 16, 256, 192);
  options.noise = 0.001;
  const e2e::GeneratedScene generated = e2e::generate_scene(options);
  const std::string out = (root / "model").string();
  const e2e::Result r = quillara(generated, out, "800");
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<scene::ModelPoint> model = scene::read_model_ply(out + "/model.ply");

  EXPECT_EQ(e2e::file_names(out), (std::vector<std::string>{"model.ply", "model_superpixel.ply"}));
  EXPECT_NE(r.out.find(" Filter particles,     radius = "), std::string::npos);
  // The closing summary: both models with their paths, and no advice, since most points were kept.
  EXPECT_NE(e2e::closing_summary(r.out).find("  model:            " + std::to_string(model.size()) + " points in " +
                                             out + "/model.ply, "),
            std::string::npos)
      << r.out;
  EXPECT_EQ(summary_lines(r), 3) << r.out;

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

// --backface-test and --preview in one run: both removals run and the models before and after the
// last one are written beside the two of every run; the previews show input beside model. Support
// levels that nothing reaches empty both models; both files are still written, empty.
TEST(BackfaceAndPreview, RemovalsWriteTheirModelsPreviewsShowInputBesideModelAndEmptyModelsAreWritten) {
  const fs::path root = io_test::fresh_scratch_dir();
  const e2e::GeneratedScene generated = e2e::generate_scene(scene_in(root, 6, 128, 96));
  const fs::path emptied = root / "emptied";
  const e2e::Result none = quillara(generated, emptied.string(), "400", {"--min-support-sp", "1e9"});
  ASSERT_EQ(none.status, 0) << none.err;
  EXPECT_TRUE(scene::read_model_ply((emptied / "model_superpixel.ply").string()).empty());
  EXPECT_TRUE(scene::read_model_ply((emptied / "model.ply").string()).empty());
  EXPECT_NE(none.out.find("                   #particles = 0\n"), std::string::npos);
  EXPECT_TRUE(none.out.ends_with("\nThe model is empty: too few views confirm each surface at the support levels in "
                                 "force (--min-support-sp 1e+09, --min-support 3); with few views try --visible-support "
                                 "0.3, which asks each point only for a share of what the views that see it could "
                                 "confirm, or lower levels, e.g. --min-support-sp 1 --min-support 1.\n"))
      << none.out;

  const std::string out = (root / "model").string();
  const e2e::Result r =
      quillara(generated, out, "400", {"--min-support-sp", "1", "--min-support", "1", "--backface-test", "--preview"});
  ASSERT_EQ(r.status, 0) << r.err;

  EXPECT_EQ(e2e::file_names(out), (std::vector<std::string>{"model.ply", "model_bf_removal1.ply", "model_bf_removal2.ply",
                                                            "model_superpixel.ply", "preview"}));
  EXPECT_EQ(e2e::occurrences(r.out, "removing invalid backface points\n"), 2u);
  EXPECT_NE(r.out.find("  back-face models: " + out + "/model_bf_removal1.ply and " + out +
                       "/model_bf_removal2.ply (before and after the last removal)\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("  preview:          6 images in " + out + "/preview\n"), std::string::npos) << r.out;

  // The removal only takes points away, and the last support filter follows it.
  const auto before = scene::read_model_ply(out + "/model_bf_removal1.ply");
  const auto after = scene::read_model_ply(out + "/model_bf_removal2.ply");
  const auto model = scene::read_model_ply(out + "/model.ply");
  EXPECT_GT(after.size(), 1000u);
  EXPECT_LE(after.size(), before.size());
  EXPECT_LE(model.size(), after.size());
  // What stays lies on the true surfaces as the default run's model does.
  const scene::Evaluation e = scene::evaluate_model(generated.dir, after);
  EXPECT_LT(e.accuracy.median, 0.5 * e.footprint);

  expect_preview_of_each_view(generated, out + "/preview");
}

// Six views with depth noise and wrong depths planted in 3 % of every view's pixels: the fixed
// levels keep next to nothing and the summary points to the visible share; the visible share keeps
// most of the surface, accurately, with both faces of the thin sheet, and still removes the planted
// outliers. Without its floor, points that no other view can see stay, and with them outliers
// hidden from every other view.
TEST(FewViews, TheVisibleShareKeepsTheSurfaceAndRemovesOutliers) {
  const fs::path root = io_test::fresh_scratch_dir();
  scene::SceneOptions options = scene_in(root, 6, 160, 120);
  options.noise = 0.001;
  options.outliers = 0.03;
  const e2e::GeneratedScene generated = e2e::generate_scene(options);
  struct Fused {
    e2e::Result run;
    std::string out_dir;
    std::vector<scene::ModelPoint> model;
    scene::Evaluation evaluation;
  };
  const auto fuse = [&](const std::string& name, const std::vector<std::string>& args) {
    Fused f;
    f.out_dir = (root / name).string();
    f.run = quillara(generated, f.out_dir, "300", args);
    if (f.run.status != 0) return f;
    f.model = scene::read_model_ply(f.out_dir + "/model.ply");
    f.evaluation = scene::evaluate_model(generated.dir, f.model);
    std::cout << name << ":\n" << scene::format_evaluation(f.evaluation);
    return f;
  };
  const Fused fixed = fuse("fixed", {});
  const Fused visible = fuse("visible", {"--visible-support", "0.3", "--ply-colors", "standard"});
  const Fused no_floor = fuse("no_floor", {"--visible-support", "0.3", "--visible-floor", "0"});
  for (const Fused* f : {&fixed, &visible, &no_floor}) ASSERT_EQ(f->run.status, 0) << f->run;

  EXPECT_LT(fixed.model.size() * 10, visible.model.size());
  const std::string advice = e2e::closing_summary(fixed.run.out);
  EXPECT_NE(advice.find("; with few views try --visible-support 0.3, which asks each point only for a share of what "
                        "the views that see it could confirm"),
            std::string::npos)
      << advice;
  EXPECT_EQ(e2e::occurrences(fixed.run.out, "  visible support:"), 0u);

  // Judged once, after the fine filter; no superpixel model.
  EXPECT_EQ(e2e::occurrences(visible.run.out, "  visible support:  kept "), 1u) << visible.run.out;
  EXPECT_EQ(summary_lines(visible.run), 2) << visible.run.out;  // no advice
  EXPECT_FALSE(fs::exists(visible.out_dir + "/model_superpixel.ply"));
  const scene::Evaluation& e = visible.evaluation;
  EXPECT_GT(e.completeness_2, 0.6);
  EXPECT_LT(e.accuracy.median, 0.25 * e.footprint);
  for (int side : {0, 1}) {
    SCOPED_TRACE(side);
    EXPECT_GT(e.sheet.points[side], 100u);
    EXPECT_GT(e.sheet.facing_own_side[side], e.sheet.points[side] / 2);
  }
  EXPECT_GT(e.planted_outliers, 1000u);
  // At 160 x 120 a footprint is four times that at 640 x 480, and an oblique view's reach along the
  // surface with it: a few more planted points meet a surface there, and a few more stay on their
  // own planes where the filter would have carried them onto the surface (98.35 % go; at 640 x 480
  // over 99.8 %).
  EXPECT_GE(e.outliers_removed, 0.98);

  EXPECT_GT(no_floor.model.size(), visible.model.size());
  EXPECT_LT(no_floor.evaluation.outliers_removed, e.outliers_removed);

  const std::string colours = "property uchar red\nproperty uchar green\nproperty uchar blue\n";
  EXPECT_NE(io_test::read_bytes(visible.out_dir + "/model.ply").find(colours), std::string::npos);
  EXPECT_NE(io_test::read_bytes(fixed.out_dir + "/model.ply").find("property uchar diffuse_red\n"), std::string::npos);
}

// The first views of a ring of 24 views of 96 x 72 pixels, their poses written 0.2 degrees and one
// footprint off, run with --improve-cameras and low support levels. With four views each has three
// others within 60 degrees: three passes of pose step and model step, each timed, the refined views
// written as view files naming the input's images and depth maps, and no pass model on disk. With
// three views each has two: the run is refused before any model is made, and leaves no refined views.
TEST(ImproveCameras, RefinesOverlappingViewsAndRefusesTooFewNeighbours) {
  const fs::path root = io_test::fresh_scratch_dir();
  scene::SceneOptions options = scene_in(root, 24, 96, 72);
  options.perturbation = {0.2, 1.0};
  e2e::GeneratedScene generated = e2e::generate_scene(options, 4);
  const std::string out = (root / "model").string(), refused = (root / "refused").string();
  const std::vector<std::string> improve = {"--min-support-sp", "1", "--min-support", "1", "--improve-cameras"};
  const e2e::Result r = quillara(generated, out, "200", improve);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(e2e::occurrences(r.out, " camera pose, view "), 12u);
  EXPECT_EQ(e2e::occurrences(r.out, ", pose step: "), 3u);
  EXPECT_EQ(e2e::occurrences(r.out, ", model step: "), 3u);
  EXPECT_NE(r.out.find(" cuda meminfo: free "), std::string::npos);
  EXPECT_NE(r.out.find("  refined views:    4 view files in " + out + "/views\n"), std::string::npos) << r.out;
  EXPECT_EQ(e2e::file_names(out), (std::vector<std::string>{"model.ply", "model_superpixel.ply", "views"}));
  for (const std::string& file : generated.view_files) {
    SCOPED_TRACE(file);
    Camera input, refined;
    CMatrix<float> depth;
    std::string input_depth, refined_depth;
    read_view(file, 0, input, depth, &input_depth);
    read_view(out + "/views/" + fs::path(file).filename().string(), 0, refined, depth, &refined_depth);
    EXPECT_EQ(refined.image_filename, input.image_filename);
    EXPECT_EQ(refined_depth, input_depth);
  }

  generated.view_files.pop_back();
  const e2e::Result few = quillara(generated, refused, "200", improve);
  EXPECT_EQ(few.status, 1);
  EXPECT_EQ(few.err,
            "--improve-cameras: no view has three other views whose optical axes lie within 60 degrees of its own; "
            "camera alignment needs views that overlap\n");
  EXPECT_EQ(few.out.find("Filter particles"), std::string::npos);
  EXPECT_FALSE(fs::exists(refused + "/model_superpixel.ply"));
  EXPECT_FALSE(fs::exists(refused + "/views"));
}
