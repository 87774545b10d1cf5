// The tile jobs of quillara-tiles on a real one-node Slurm cluster, started for this test by
// scripts/slurm-cluster and stopped by it (it stops exactly the daemons it started): the job array
// of a plan runs through sbatch, and the merged model is the one quillara --max-memory makes.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/generated_scene.h"
#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"

namespace fs = std::filesystem;

namespace {

const fs::path kRoot = fs::path(QUILLARA_TEST_TMP) / "slurm";
const std::string kCluster = (kRoot / "cluster").string();
const std::string kScript = std::string(QUILLARA_SOURCE_DIR) + "/scripts/slurm-cluster";

class SlurmCluster : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    fs::remove_all(kRoot);
    started_ = e2e::run(kScript, QUILLARA_SOURCE_DIR, {"start", kCluster}, {}, {60.0});
  }
  static void TearDownTestSuite() { e2e::run(kScript, QUILLARA_SOURCE_DIR, {"stop", kCluster}, {}, {60.0}); }
  static e2e::Result started_;
};
e2e::Result SlurmCluster::started_;

TEST_F(SlurmCluster, JobArrayOfAPlanGivesTheMaxMemoryModel) {
  ASSERT_EQ(started_.status, 0) << started_;
  const e2e::GeneratedScene scene = e2e::generate_scene(e2e::small_scene((kRoot / "scene").string()));
  const std::vector<std::string> env = {"OMP_NUM_THREADS=1", "OMP_WAIT_POLICY=passive",
                                        "SLURM_CONF=" + kCluster + "/slurm.conf"};
  const auto args = [&](const std::vector<std::string>& head) {
    return e2e::fusion_args(head, scene.average_depth, "300", {"--max-memory", "52M"}, scene.view_files);
  };
  ASSERT_EQ(e2e::run(QUILLARA_BIN, kRoot.string(), args({"-o", "local"}), env).status, 0);
  const e2e::Result planned = e2e::run(QUILLARA_TILES_BIN, kRoot.string(), args({"plan", "-o", "jobs"}), env);
  ASSERT_EQ(planned.status, 0) << planned;
  const e2e::Result batch =
      e2e::run("/usr/bin/sbatch", kRoot.string(), {"--wait", (kRoot / "jobs/slurm/array.sh").string()}, env, {300.0});
  ASSERT_EQ(batch.status, 0) << batch;
  const e2e::Result merged = e2e::run(QUILLARA_TILES_BIN, kRoot.string(), {"merge", "jobs"}, env);
  ASSERT_EQ(merged.status, 0) << merged;
  EXPECT_EQ(io_test::read_bytes((kRoot / "jobs/model.ply").string()),
            io_test::read_bytes((kRoot / "local/model.ply").string()));
  EXPECT_EQ(io_test::read_bytes((kRoot / "jobs/model_superpixel.ply").string()),
            io_test::read_bytes((kRoot / "local/model_superpixel.ply").string()));
}

}  // namespace
