#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"
#include "tools/scene/scene_files.h"

// Runs the quillara binary on a tiny generated scene with a broken view file: what it prints, how
// it ends and what it leaves.

namespace fs = std::filesystem;

TEST(SceneRun, ViewFileWithoutPathsEndsTheRunAbnormally) {
  const std::string dir = io_test::scratch_dir();
  fs::remove_all(dir);
  fs::create_directories(dir);
  scene::SceneOptions options;
  options.out_dir = dir + "/scene";
  options.views = 2;
  options.width = 48;
  options.height = 40;
  options.ground_truth_stride = 48;
  const scene::SceneSummary summary = scene::write_scene(scene::make_default_scene(), options);
  const std::string view = summary.out_dir + "/" + scene::view_file_name(0);
  std::ostringstream average;
  average << summary.average_depth;
  std::ofstream(dir + "/short.txt") << "40 0 23.5\n0 40 19.5\n0 0 1\n1 0 0\n0 1 0\n0 0 1\n0 0 0\n48 40\n";
  // Idle OpenMP threads sleep instead of spinning, which keeps the run quick on a busy machine.
  const e2e::Result r = e2e::run(QUILLARA_BIN, dir, {"-o", "out", "--depth-avg", average.str(), "--", view, "short.txt"},
                                 {"OMP_WAIT_POLICY=passive"});
  EXPECT_EQ(r.status, -1) << r;
  EXPECT_EQ(r.signal, SIGABRT);  // the uncaught exception ends the process
  EXPECT_EQ(r.out, "Reading file " + view + "\nReading file short.txt\n");
  EXPECT_NE(r.err.find("CMatrix::readFromPNG: Cannot open file \n"), std::string::npos) << r.err;
  EXPECT_TRUE(fs::is_empty(dir + "/out"));
}
