#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "src/app/scene_input.h"
#include "tests/support/generated_scene.h"
#include "tests/support/run_process.h"
#include "tools/scene/scene_files.h"

namespace fs = std::filesystem;

namespace {

struct ImprovedRun {
  std::string out_dir;
  std::vector<std::string> view_files;
  e2e::Result run;
};

// The first `count` views of a ring of `ring` views of 96 x 72 pixels, their poses written 0.2
// degrees and one footprint off, run with --improve-cameras and low support levels. Every view has
// three others within 60 degrees when the ring has 24 views and count is 4 or more. With
// `debug_directory` the refinement dumps its depth stacks into model/debug.
ImprovedRun improve(const std::string& name, int ring, int count, bool debug_directory) {
  ImprovedRun r;
  const fs::path root = fs::path(QUILLARA_TEST_TMP) / name;
  fs::remove_all(root);
  if (debug_directory) fs::create_directories(root / "model" / "debug");
  r.out_dir = (root / "model").string();
  scene::SceneOptions options;
  options.out_dir = (root / "scene").string();
  options.views = ring;
  options.width = 96;
  options.height = 72;
  options.perturbation = {0.2, 1.0};
  const e2e::GeneratedScene generated = e2e::generate_scene(options, count);
  r.view_files = generated.view_files;
  std::vector<std::string> args = {"-o", r.out_dir, "--depth-avg", generated.average_depth, "--superpixels", "200",
                                   "--min-support-sp", "1", "--min-support", "1", "--improve-cameras", "--"};
  args.insert(args.end(), r.view_files.begin(), r.view_files.end());
  r.run = e2e::run(QUILLARA_BIN, root.string(), args);
  return r;
}

}  // namespace

// Images below 110 rows leave the poses as they are, so the run shows the schedule alone: three
// passes of alignment, refinement and filtering, the dumps of each refinement, the refined views
// as view files naming the input's images, and no pass model on disk.
TEST(ImproveCameras, RunsThreePassesAndWritesTheRefinedViews) {
  const ImprovedRun r = improve("improve_schedule", 24, 4, true);
  ASSERT_EQ(r.run.status, 0) << r.run.err;
  EXPECT_EQ(e2e::occurrences(r.run.out, " camera pose, view "), 12u);
  EXPECT_EQ(e2e::occurrences(r.run.out, " refine depth maps radius "), 3u);
  EXPECT_EQ(e2e::occurrences(r.run.out, "                   #PARTICLES = "), 3u);
  EXPECT_NE(r.run.out.find(" cuda meminfo: free "), std::string::npos);
  EXPECT_NE(r.run.out.find("  refined views:    4 view files in " + r.out_dir + "/views\n"), std::string::npos)
      << r.run.out;

  EXPECT_EQ(e2e::file_names(r.out_dir), (std::vector<std::string>{"debug", "model.ply", "model_superpixel.ply", "views"}));
  // Three depth stacks of 4 maps of 96 x 72 floats, each with its description.
  for (const char* dump : {"debug_rendered_depthmaps.dat", "debug_improved_depthmaps.dat",
                           "debug_current_particles_depthmaps.dat"}) {
    EXPECT_EQ(fs::file_size(fs::path(r.out_dir) / "debug" / dump), 4u * 96 * 72 * 4) << dump;
    EXPECT_TRUE(fs::exists(fs::path(r.out_dir) / "debug" / (std::string(dump) + ".ketrainfo"))) << dump;
  }

  for (const std::string& file : r.view_files) {
    SCOPED_TRACE(file);
    Camera input, refined;
    CMatrix<float> depth;
    std::string input_depth, refined_depth;
    read_view(file, 0, input, depth, &input_depth);
    read_view(r.out_dir + "/views/" + fs::path(file).filename().string(), 0, refined, depth, &refined_depth);
    EXPECT_EQ(refined.image_filename, input.image_filename);
    EXPECT_EQ(refined_depth, input_depth);
    for (int i = 0; i < 9; ++i) EXPECT_FLOAT_EQ(refined.R[i], input.R[i]);
    for (int i = 0; i < 3; ++i) EXPECT_FLOAT_EQ(refined.t[i], input.t[i]);
  }
}

// The three views of a ring of 8 have two neighbours within 60 degrees: the refinement keeps no
// pixel, and the run says why.
TEST(ImproveCameras, TooFewNeighboursEndTheRunWithTheReason) {
  const ImprovedRun r = improve("improve_too_few", 8, 3, false);
  EXPECT_EQ(r.run.status, 1);
  EXPECT_EQ(r.run.err,
            "improvement pass 0: refine depth maps: no view kept a pixel; each view needs at least three other views "
            "whose optical axes lie within 60 degrees of its own, and their images must agree with it on the model\n");
  EXPECT_FALSE(fs::exists(r.out_dir + "/model.ply"));
}
