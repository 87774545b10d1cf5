#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/io_test_support.h"
#include "tests/run_process.h"
#include "tools/scene/scene_files.h"

// Runs the quillara binary on tiny generated scenes: what it reads and prints, which view inputs
// it accepts, how it ends on a broken view file, and the files a run leaves.

namespace {

namespace fs = std::filesystem;

class SceneRun : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = io_test::scratch_dir();
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }

  // Writes a 48 x 40 scene with `views` views and returns the view files.
  std::vector<std::string> make_scene(int views) {
    scene::SceneOptions options;
    options.out_dir = dir_ + "/scene";
    options.views = views;
    options.width = 48;
    options.height = 40;
    options.ground_truth_stride = 48;
    const scene::SceneSummary summary = scene::write_scene(scene::make_default_scene(), options);
    std::ostringstream avg;
    avg << summary.average_depth;
    average_depth_ = avg.str();
    std::vector<std::string> files;
    for (int i = 0; i < views; ++i) files.push_back(summary.out_dir + "/" + scene::view_file_name(i));
    return files;
  }

  // Runs on the views with 60 superpixels, writing to `out`, with further options before "--".
  e2e::Result run(const std::vector<std::string>& views, const std::string& out = "out",
                  std::vector<std::string> options = {}, const std::string& threads = "") {
    std::vector<std::string> args = {"-o", out, "--depth-avg", average_depth_, "--superpixels", "60"};
    args.insert(args.end(), options.begin(), options.end());
    args.push_back("--");
    args.insert(args.end(), views.begin(), views.end());
    // Idle OpenMP threads sleep instead of spinning: on a busy machine spinning threads make
    // these tiny runs many times slower.
    std::vector<std::string> env = {"OMP_WAIT_POLICY=passive"};
    if (!threads.empty()) env.push_back("OMP_NUM_THREADS=" + threads);
    return e2e::run(QUILLARA_BIN, dir_, args, env);
  }

  std::set<std::string> output_files(const std::string& out = "out") const {
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(dir_ + "/" + out)) names.insert(e.path().filename());
    return names;
  }

  std::string dir_;
  std::string average_depth_ = "3";
};

// A normal end whose output starts with the reading lines; the superpixel line of each view is
// pinned by the superpixel tests.
void expect_normal_end(const e2e::Result& r, const std::string& reading) {
  EXPECT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.signal, 0);
  EXPECT_EQ(r.out.substr(0, reading.size()), reading);
}

}  // namespace

TEST_F(SceneRun, ImagesTwiceTheDeclaredSizeGiveTheSameModels) {
  // The view files declare half the size and half the focal lengths; the colour and depth images
  // stay 48 x 40. The principal point is chosen so that, mirrored and doubled, it is the rendered
  // camera's, so both runs see the same cameras. Lower support limits keep the models non-empty,
  // and one thread fixes the order of the superpixel particles.
  const std::vector<std::string> full = make_scene(2);
  std::vector<std::string> views = full;
  for (std::string& v : views) {
    scene::ViewFile f = scene::read_view_file(v);
    for (int k : {0, 4}) f.K[k] /= 2;
    for (int k : {2, 5}) f.K[k] = (f.K[k] - 1) / 2;
    f.width = 24;
    f.height = 20;
    v += ".half";
    std::ofstream(v) << scene::format_view_file(f);
  }
  const std::vector<std::string> support = {"--min-support-sp", "0.5", "--min-support", "0.5"};
  expect_normal_end(run(full, "full", support, "1"), "Reading file " + full[0] + "\n");
  const e2e::Result r = run(views, "half", support, "1");
  expect_normal_end(r, "Reading file " + views[0] + "\n");
  EXPECT_EQ(output_files("half"), (std::set<std::string>{"model_superpixel.ply", "model.ply"}));
  for (const std::string model : {"/model_superpixel.ply", "/model.ply"}) {
    const std::string bytes = io_test::read_bytes(dir_ + "/half" + model);
    EXPECT_EQ(bytes.find("element vertex 0\n"), std::string::npos) << model;
    EXPECT_EQ(bytes, io_test::read_bytes(dir_ + "/full" + model)) << model;
  }
}

TEST_F(SceneRun, ViewFileWithoutPathsEndsTheRunAbnormally) {
  std::vector<std::string> views = make_scene(2);
  std::ofstream(dir_ + "/short.txt") << "40 0 23.5\n0 40 19.5\n0 0 1\n1 0 0\n0 1 0\n0 0 1\n0 0 0\n48 40\n";
  const e2e::Result r = run({views[0], "short.txt"});
  EXPECT_EQ(r.status, -1) << r;
  EXPECT_EQ(r.signal, SIGABRT);  // the uncaught exception ends the process
  EXPECT_EQ(r.out, "Reading file " + views[0] + "\nReading file short.txt\n");
  EXPECT_NE(r.err.find("CMatrix::readFromPNG: Cannot open file \n"), std::string::npos) << r.err;
  EXPECT_TRUE(output_files().empty());
}
