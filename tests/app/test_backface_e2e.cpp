// --backface-test end to end: both removals run, and the models before and after the last one are
// written beside the two of every run.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/generated_scene.h"
#include "tests/support/run_process.h"
#include "tools/scene/evaluation.h"
#include "tools/scene/scene_files.h"

namespace fs = std::filesystem;

TEST(BackfaceTest, RemovesBackFacingPointsAndWritesTheModelsAroundTheLastRemoval) {
  const fs::path root = fs::path(QUILLARA_TEST_TMP) / "backface";
  fs::remove_all(root);
  const e2e::GeneratedScene generated = e2e::generate_scene((root / "scene").string(), 6, 128, 96);
  const std::string out = (root / "model").string();
  std::vector<std::string> args = {"-o", out, "--depth-avg", generated.average_depth, "--superpixels", "400",
                                   "--min-support-sp", "1", "--min-support", "1", "--backface-test", "--"};
  args.insert(args.end(), generated.view_files.begin(), generated.view_files.end());
  const e2e::Result r = e2e::run(QUILLARA_BIN, root.string(), args);
  ASSERT_EQ(r.status, 0) << r.err;

  std::vector<std::string> files;
  for (const auto& entry : fs::directory_iterator(out)) files.push_back(entry.path().filename().string());
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector<std::string>{"model.ply", "model_bf_removal1.ply", "model_bf_removal2.ply",
                                             "model_superpixel.ply"}));
  std::size_t removals = 0;
  for (std::size_t at = r.out.find("removing invalid backface points\n"); at != std::string::npos;
       at = r.out.find("removing invalid backface points\n", at + 1))
    ++removals;
  EXPECT_EQ(removals, 2u);
  EXPECT_NE(r.out.find("  back-face models: " + out + "/model_bf_removal1.ply and " + out +
                       "/model_bf_removal2.ply (before and after the last removal)\n"),
            std::string::npos)
      << r.out;

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
}
