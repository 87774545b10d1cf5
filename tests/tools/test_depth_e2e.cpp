// quillara-depth end to end: depth maps from the images of a generated scene against its ray-cast
// depth, and the model fused from them against the true surfaces.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"
#include "tools/scene/depth_truth.h"
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

// What the tool keeps is right: at 160 x 120 with views 45 degrees apart about half of the pixels
// two views see keep a depth after the confidence and consistency steps, and those lie within 1 %
// of the ray-cast depth (94 %, median 0.16 %); 0.2 % of the background gets one. A broken sweep,
// a consistency check that confirms anything, or no confidence at all (half the background
// filled) fails here. The view files written fuse.
TEST(DepthProgram, KeptDepthsMatchTheRayCastDepthAndFuse) {
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
  EXPECT_GT(f.estimated, f.seen / 50);
  EXPECT_LT(f.median_error, 0.005);
  EXPECT_GT(f.kept_within_1_percent, 0.8);
  EXPECT_LT(f.background_estimated, f.background / 200);

  const e2e::Result fusion = e2e::fuse(root + "/model", e2e::average_depth(scene_dir), view_files(root + "/depth"));
  ASSERT_EQ(fusion.status, 0) << fusion.err;
  EXPECT_GT(scene::read_model_ply(root + "/model/model.ply").size(), 0u);
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

// Runs that cannot give a depth anywhere, and outputs that cannot be written, end with one line
// and exit status 1, leaving no file of theirs behind.
TEST(DepthProgram, RunsWithoutAnyDepthOrWritableOutputLeaveNothing) {
  const std::string root = io_test::fresh_scratch_dir();
  images_only_scene(root);
  const std::vector<std::string> pair = {"images/view_00.txt", "images/view_01.txt"};
  const auto run = [&](std::vector<std::string> options, std::vector<std::string> files) {
    options.push_back("--");
    options.insert(options.end(), files.begin(), files.end());
    return e2e::run(QUILLARA_DEPTH_BIN, root, options, {}, e2e::Limits{120.0});
  };
  const std::string no_match = "quillara-depth: no view got a depth: no pixel matched with a distinct depth inside the range";
  const std::string no_neighbour =
      "quillara-depth: no view got a depth: no view has a neighbouring view (optical axes within 60 degrees, a "
      "baseline that subtends at least 1 degree at the depths tried)";
  struct Case {
    std::vector<std::string> options, files;
    std::string out_dir, message;
  } cases[] = {
      {{"-o", "out", "--depth-range", "1.5,7"}, {"images/view_00.txt", "images/view_04.txt"}, "out", no_neighbour},
      {{"-o", "out", "--depth-range", "1.5,7", "--labels", "2"}, pair, "out", no_match},
      {{"-o", "out", "--depth-range", "1000,2000"}, pair, "out", no_neighbour},
      {{"-o", "out", "--depth-range", "0.01,0.02"}, pair, "out", no_match},
      {{"-o", "out put", "--depth-range", "1.5,7"}, pair, "out put",
       "quillara-depth: out put: its path \"" + root +
           "/out put\" holds white space, which the view files written there cannot hold; choose another -o DIR"},
  };
  for (const Case& c : cases) {
    const e2e::Result r = run(c.options, c.files);
    EXPECT_EQ(r.status, 1) << r;
    EXPECT_EQ(r.err.substr(0, c.message.size()), c.message) << r;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r;
    EXPECT_FALSE(fs::exists(root + "/" + c.out_dir)) << c.out_dir;
  }

  // The fourth view's depth map cannot be written: the files of the first three go again, and the
  // message gives the system's reason.
  fs::create_directories(root + "/kept/view_03_depth.png");
  const e2e::Result blocked = run({"-o", "kept", "--depth-range", "1.5,7"}, view_files("images"));
  EXPECT_EQ(blocked.status, 1) << blocked;
  EXPECT_NE(blocked.err.find("/kept/view_03_depth.png: cannot be written: Is a directory"), std::string::npos) << blocked;
  EXPECT_EQ(std::distance(fs::directory_iterator(root + "/kept"), fs::directory_iterator()), 1);
}

// The command printed at the end runs as shown whatever the folder is called.
TEST(DepthProgram, TheNextCommandQuotesItsPaths) {
  const std::string root = io_test::fresh_scratch_dir();
  images_only_scene(root, 8);
  const std::string dir = "o/d$(mkdir${IFS}X)'q";
  std::vector<std::string> args = {"-o", dir, "--depth-range", "1.5,7", "--consistent", "1", "--"};
  for (const std::string& f : view_files("images")) args.push_back(f);
  const e2e::Result r = e2e::run(QUILLARA_DEPTH_BIN, root, args, {}, e2e::Limits{300.0});
  ASSERT_EQ(r.status, 0) << r;
  const std::string next = r.out.substr(r.out.find("next: quillara ") + 6);
  // The shell's own reading of the printed words, as a paste would do.
  const e2e::Result words = e2e::run("/bin/sh", root, {"-c", "printf '%s\\n' " + next.substr(9, next.find(" -- ") - 9)});
  EXPECT_EQ(words.out.substr(0, words.out.find('\n', 11) + 1), "--out-dir\n" + dir + "/model\n") << next;
  const e2e::Result files = e2e::run("/bin/sh", root, {"-c", "printf '%s\\n' " + next.substr(next.find(" -- ") + 4)});
  EXPECT_NE(files.out.find(dir + "/view_07.txt\n"), std::string::npos) << files;
  EXPECT_FALSE(fs::exists(root + "/X")) << next;
  EXPECT_TRUE(fs::exists(root + "/" + dir + "/view_07_agreeing.png"));
}
