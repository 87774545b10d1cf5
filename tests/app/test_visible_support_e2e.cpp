#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tests/support/generated_scene.h"
#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"
#include "tools/scene/evaluation.h"
#include "tools/scene/scene_files.h"

namespace fs = std::filesystem;

namespace {

struct Fused {
  e2e::Result run;
  std::string out_dir;
  std::vector<scene::ModelPoint> model;
  scene::Evaluation evaluation;
};

}  // namespace

// Six views with depth noise and wrong depths planted in 3 % of every view's pixels: the fixed
// levels keep next to nothing and the summary points to the visible share; the visible share keeps
// most of the surface, accurately, with both faces of the thin sheet, and still removes the planted
// outliers. Without its floor, points that no other view can see stay, and with them outliers
// hidden from every other view.
TEST(FewViews, TheVisibleShareKeepsTheSurfaceAndRemovesOutliers) {
  const std::string root = (fs::path(QUILLARA_TEST_TMP) / "few_views").string();
  fs::remove_all(root);
  scene::SceneOptions options;
  options.out_dir = root + "/scene";
  options.views = 6;
  options.width = 160;
  options.height = 120;
  options.noise = 0.001;
  options.outliers = 0.03;
  const e2e::GeneratedScene generated = e2e::generate_scene(options);
  const auto fuse = [&](const std::string& name, std::vector<std::string> args) {
    Fused f;
    f.out_dir = root + "/" + name;
    args.insert(args.begin(), {"-o", f.out_dir, "--depth-avg", generated.average_depth, "--superpixels", "300"});
    args.push_back("--");
    args.insert(args.end(), generated.view_files.begin(), generated.view_files.end());
    f.run = e2e::run(QUILLARA_BIN, root, args);
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

  // Judged on the superpixel level and once on the fine level, after its filter.
  EXPECT_EQ(e2e::occurrences(visible.run.out, "  visible support:  kept "), 2u) << visible.run.out;
  const std::string closing = e2e::closing_summary(visible.run.out);
  EXPECT_EQ(std::count(closing.begin(), closing.end(), '\n'), 3) << closing;  // no advice
  const scene::Evaluation& e = visible.evaluation;
  EXPECT_GT(e.completeness_2, 0.6);
  EXPECT_LT(e.accuracy.median, 0.25 * e.footprint);
  for (int side : {0, 1}) {
    SCOPED_TRACE(side);
    EXPECT_GT(e.sheet.points[side], 100u);
    EXPECT_GT(e.sheet.facing_own_side[side], e.sheet.points[side] / 2);
  }
  EXPECT_GT(e.planted_outliers, 1000u);
  EXPECT_GE(e.outliers_removed, 0.99);

  EXPECT_GT(no_floor.model.size(), visible.model.size());
  EXPECT_LT(no_floor.evaluation.outliers_removed, e.outliers_removed);

  const std::string colours = "property uchar red\nproperty uchar green\nproperty uchar blue\n";
  EXPECT_NE(io_test::read_bytes(visible.out_dir + "/model.ply").find(colours), std::string::npos);
  EXPECT_NE(io_test::read_bytes(visible.out_dir + "/model_superpixel.ply").find(colours), std::string::npos);
  EXPECT_NE(io_test::read_bytes(fixed.out_dir + "/model.ply").find("property uchar diffuse_red\n"), std::string::npos);
}
