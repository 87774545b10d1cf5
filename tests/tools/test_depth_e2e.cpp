// quillara-depth end to end: depth maps from the images of a generated scene against its ray-cast
// depth, and the model fused from them against the true surfaces.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"
#include "tools/scene/depth_truth.h"
#include "tools/scene/evaluation.h"
#include "tools/scene/model_file.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace fs = std::filesystem;

namespace {

// Views of 160 x 120 and their view files rewritten to name depth maps that do not exist: the
// images are all quillara-depth may use.
std::string images_only_scene(const std::string& root, int views = 8) {
  scene::SceneOptions o;
  o.out_dir = root + "/scene";
  o.views = views;
  o.width = 160;
  o.height = 120;
  o.ground_truth_stride = 2;
  scene::write_scene(scene::make_default_scene(), o);
  fs::create_directories(root + "/images");
  for (int v = 0; v < views; ++v) {
    ViewFile f = read_view_file(o.out_dir + "/" + scene::view_file_name(v));
    f.depth_path = root + "/images/none_" + std::to_string(v) + ".png";
    write_view_file(root + "/images/" + scene::view_file_name(v), f);
  }
  return o.out_dir;
}

// The eight view files in dir.
std::vector<std::string> view_files(const std::string& dir) {
  std::vector<std::string> files;
  for (int v = 0; v < 8; ++v) files.push_back(dir + "/" + scene::view_file_name(v));
  return files;
}

}  // namespace

// Floors that matching without paths (single pixels, penalties 0: median error 14 %, 22 % within
// 1 %, 2.6 % of the surface fused within two footprints) or a broken sweep cannot reach. At 160 x 120
// a label spans about a pixel, so the figures stay well below those of full-size views.
TEST(DepthProgram, DepthMapsMatchTheRayCastDepthAndFuse) {
  const std::string root = io_test::fresh_scratch_dir();
  const std::string scene_dir = images_only_scene(root);
  std::vector<std::string> args = {"-o", "depth", "--depth-range", "1.5,7", "--"};
  for (const std::string& f : view_files("images")) args.push_back(f);
  const e2e::Result r = e2e::run(QUILLARA_DEPTH_BIN, root, args);
  ASSERT_EQ(r.status, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("View 8 of 8: images/view_07.txt, depths 1.5 to 7, neighbours"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("quillara-depth: 8 views in "), std::string::npos) << r.out;

  const scene::DepthTruthFigures f = scene::compare_with_truth(scene_dir, root + "/depth");
  std::cout << scene::format_depth_truth(f);
  EXPECT_GT(f.estimated, f.seen * 9 / 10);
  EXPECT_LT(f.median_error, 0.05);
  EXPECT_GT(f.within_1_percent, 0.28);

  // The true depth maps fuse to 67 % within two footprints at this size.
  const e2e::Result fusion = e2e::fuse(root + "/model", e2e::average_depth(scene_dir), view_files(root + "/depth"));
  ASSERT_EQ(fusion.status, 0) << fusion.err;
  const scene::Evaluation fused = scene::evaluate_model(scene_dir, scene::read_model_ply(root + "/model/model.ply"));
  std::cout << scene::format_evaluation(fused);
  EXPECT_GT(fused.completeness_2, 0.035);
}

// Views whose depth maps do not exist need a range; problems are one line and exit status 1.
TEST(DepthProgram, ProblemsAreOneLineAndExitStatusOne) {
  const std::string root = io_test::fresh_scratch_dir();
  images_only_scene(root, 2);
  EXPECT_EQ(e2e::run(QUILLARA_DEPTH_BIN, root, {"-o", "out", "--", "images/view_00.txt", "images/view_01.txt"}),
            (e2e::Result{"Reading view file images/view_00.txt\n",
                         "quillara-depth: view file \"images/view_00.txt\": the depth map \"" + root +
                             "/images/none_0.png\" does not exist or holds no depth; give the depths to try with "
                             "--depth-range NEAR,FAR\n",
                         1}));
  EXPECT_EQ(e2e::run(QUILLARA_DEPTH_BIN, root,
                     {"-o", "out", "--depth-range", "1,5", "--", "images/view_00.txt", "images/nothing.txt"})
                .err,
            "quillara-depth: view file \"images/nothing.txt\": cannot be opened: No such file or directory\n");
  EXPECT_EQ(e2e::run(QUILLARA_DEPTH_BIN, root, {"-o", "out", "--labels", "1", "--", "a", "b"}),
            (e2e::Result{"",
                         "quillara-depth: --labels needs an integer from 2 to 1024, got '1' (see quillara-depth "
                         "--help)\n",
                         1}));
}
