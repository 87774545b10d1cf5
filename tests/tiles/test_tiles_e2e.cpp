// Tiled runs end to end on a small generated scene: quillara --max-memory against the untiled
// run, the tile jobs of quillara-tiles against quillara --max-memory, and their bad input.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/generated_scene.h"
#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"

namespace fs = std::filesystem;

namespace {

class TiledRun : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = io_test::fresh_scratch_dir();
    scene_ = e2e::generate_scene(e2e::small_scene((dir_ / "scene").string()));
  }
  // One thread keeps the superpixel particles' order, and with it the models, the same each run.
  e2e::Result run(const std::string& program, const std::vector<std::string>& args, const e2e::Limits& limits = {}) {
    return e2e::run(program, dir_.string(), args, {"OMP_NUM_THREADS=1", "OMP_WAIT_POLICY=passive"}, limits);
  }
  // `head` (the command and the output directory), the scene's settings, `more` options, the views.
  std::vector<std::string> options(const std::vector<std::string>& head, const std::vector<std::string>& more) {
    return e2e::fusion_args(head, scene_.average_depth, "300", more, scene_.view_files);
  }
  e2e::Result quillara(const std::string& out, const std::vector<std::string>& more = {},
                       const e2e::Limits& limits = {}) {
    return run(QUILLARA_BIN, options({"-o", out}, more), limits);
  }
  e2e::Result tiles(const std::vector<std::string>& args, const e2e::Limits& limits = {}) {
    return run(QUILLARA_TILES_BIN, args, limits);
  }
  std::string bytes(const std::string& name) { return io_test::read_bytes((dir_ / name).string()); }
  std::string path(const std::string& name) { return (dir_ / name).string(); }

  fs::path dir_;
  e2e::GeneratedScene scene_;
};

// One tile is the untiled run byte for byte, and leaves no tiles' folder; the tile jobs of a plan
// give the model of --max-memory, and the merge refuses to run with tiles missing.
TEST_F(TiledRun, OneTileIsTheUntiledRunAndTileJobsGiveTheModelOfMaxMemory) {
  ASSERT_EQ(quillara("whole").status, 0);
  const e2e::Result one = quillara("one", {"--max-memory", "100G"});
  ASSERT_EQ(one.status, 0) << one;
  EXPECT_NE(one.out.find("fused in 1 tile for --max-memory 100G\n"), std::string::npos);
  EXPECT_EQ(bytes("one/model.ply"), bytes("whole/model.ply"));
  EXPECT_EQ(bytes("one/model_superpixel.ply"), bytes("whole/model_superpixel.ply"));
  EXPECT_EQ(e2e::file_names(path("one")), e2e::file_names(path("whole")));

  const e2e::Result tiled = quillara("tiled", {"--max-memory", "52M"});
  ASSERT_EQ(tiled.status, 0) << tiled;
  EXPECT_EQ(tiles({"plan"}).status, 1);
  const e2e::Result p = tiles(options({"plan", "-o", "jobs"}, {"--max-memory", "52M"}));
  ASSERT_EQ(p.status, 0) << p;
  const std::string script = bytes("jobs/slurm/array.sh");
  const std::size_t at = script.find("#SBATCH --array=0-");
  ASSERT_NE(at, std::string::npos);
  const int count = std::stoi(script.substr(at + 18)) + 1;
  EXPECT_GE(count, 2);

  // Before the jobs: all missing, and the merge names them and writes nothing.
  EXPECT_EQ(e2e::occurrences(tiles({"status", "jobs"}).out, ": missing\n"), static_cast<std::size_t>(count));
  const e2e::Result early = tiles({"merge", "jobs"});
  EXPECT_EQ(early.status, 1);
  EXPECT_EQ(e2e::occurrences(early.err, "\n"), 1u);
  EXPECT_NE(early.err.find("cannot merge \"" + path("jobs") + "\": " + std::to_string(count) + " of " +
                           std::to_string(count) + " tiles are missing (0, 1"),
            std::string::npos)
      << early.err;
  EXPECT_FALSE(fs::exists(path("jobs/model.ply")));

  // The jobs, run from elsewhere; tile 0 twice, which replaces its result.
  for (int k = 0; k < count; ++k) {
    const e2e::Result r = e2e::run(QUILLARA_TILES_BIN, "/", {"run", path("jobs"), std::to_string(k)}, {"OMP_NUM_THREADS=1"});
    ASSERT_EQ(r.status, 0) << r;
  }
  const std::string first = bytes("jobs/tiles/tile_0.bin");
  ASSERT_EQ(e2e::run(QUILLARA_TILES_BIN, path("jobs"), {"run", ".", "0"}, {"OMP_NUM_THREADS=1", "SLURM_ARRAY_TASK_ID=1"}).status, 0);
  EXPECT_EQ(bytes("jobs/tiles/tile_0.bin"), first);
  EXPECT_EQ(e2e::occurrences(tiles({"status", "jobs"}).out, ": done, "), static_cast<std::size_t>(count));
  ASSERT_EQ(tiles({"merge", "jobs"}).status, 0);
  EXPECT_EQ(bytes("jobs/model.ply"), bytes("tiled/model.ply"));
  EXPECT_EQ(bytes("jobs/model_superpixel.ply"), bytes("tiled/model_superpixel.ply"));
}

// Stopped while its tiles are fused, a run leaves no tile folder and no model, and ends by the
// signal.
TEST_F(TiledRun, ASignalLeavesOnlyTheFinishedSuperpixelModel) {
  for (const auto& [signal, at] : {std::pair{SIGINT, "Tile 1 of"}, {SIGTERM, "Tile 2 of"}, {SIGHUP, "Tile 3 of"}}) {
    const std::string out = "stopped" + std::to_string(signal);
    const e2e::Result r = quillara(out, {"--max-memory", "52M"}, {.stop_at = at, .stop_signal = signal});
    EXPECT_EQ(r.signal, signal) << r;
    EXPECT_EQ(e2e::file_names(path(out)), std::vector<std::string>{"model_superpixel.ply"}) << at;
  }
}

TEST_F(TiledRun, BadInputEndsWithOneLineAndLeavesNothingPartial) {
  // A budget too small for one view's particles says which would do.
  const e2e::Result small = quillara("small", {"--max-memory", "50M"});
  EXPECT_EQ(small.status, 1);
  EXPECT_EQ(e2e::occurrences(small.err, "\n"), 1u);
  EXPECT_NE(small.err.find("--max-memory 50M is too small: one view alone makes "), std::string::npos) << small.err;
  EXPECT_NE(small.err.find(" would do\n"), std::string::npos);
  EXPECT_FALSE(fs::exists(path("small/model.ply")));
  EXPECT_EQ(quillara("both", {"--max-memory", "1G", "--preview"}).err,
            "--max-memory cannot be combined with --preview: that stage renders the whole model into every view\n");
  EXPECT_EQ(quillara("unit", {"--max-memory", "8T"}).err,
            "Option '--max-memory' requires a size in bytes, with K, M or G (such as 8G)\n");

  // quillara-tiles' own command line: help, and one line for what it cannot take.
  const e2e::Result help = tiles({"plan", "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("Usage: quillara-tiles plan -o DIR", 0), 0u);
  EXPECT_EQ(tiles(options({"plan", "-o", "preview"}, {"--tiles", "2", "--preview"})).err,
            "quillara-tiles: --preview cannot be used with tiles: it needs the whole model (see quillara-tiles --help)\n");
  EXPECT_EQ(tiles({"plan", "--tiles", "2", "--alpha", "x", "-o", "a", "--", "v"}).err,
            "quillara-tiles: Option '--alpha' requires a numeric argument (see quillara-tiles --help)\n");
  EXPECT_EQ(tiles({"fuse"}).err, "quillara-tiles: unknown command 'fuse' (see quillara-tiles --help)\n");
  EXPECT_FALSE(fs::exists(path("preview")));

  const e2e::Result planned = tiles(options({"plan", "-o", "bad jobs"}, {"--tiles", "2"}));
  ASSERT_EQ(planned.status, 0) << planned;
  // The commands it prints run as shown.
  EXPECT_NE(planned.out.find(" merge '" + path("bad jobs") + "'\n"), std::string::npos) << planned.out;
  EXPECT_EQ(tiles({"run", path("bad jobs"), "2"}).err,
            "quillara-tiles: tile \"2\" is not one of the plan's 2 (0 to 1)\n");
  // A stopped job leaves no result; one killed while it wrote, at most its hidden temporary file,
  // which the rerun clears.
  const e2e::Result stopped = tiles({"run", path("bad jobs"), "0"}, {.stop_at = "Tile 0 of 2"});
  EXPECT_EQ(stopped.signal, SIGTERM) << stopped;
  EXPECT_EQ(e2e::file_names(path("bad jobs/tiles")), std::vector<std::string>{});
  io_test::write_bytes(path("bad jobs/tiles/.tile_0.bin.12345.part"), "QLTILE01 cut off");
  EXPECT_EQ(tiles({"status", "bad jobs"}).out.substr(0, 17), "tile 0: missing\nt");
  ASSERT_EQ(tiles({"run", path("bad jobs"), "0"}).status, 0);
  EXPECT_EQ(e2e::file_names(path("bad jobs/tiles")), std::vector<std::string>{"tile_0.bin"});

  // A view file or an image that changed or vanished since planning stops every later job.
  const std::string view = scene_.view_files[3];
  const std::string text = io_test::read_bytes(view);
  io_test::write_bytes(view, text + "\n");
  const e2e::Result changed = tiles({"run", path("bad jobs"), "1"});
  EXPECT_EQ(changed.status, 1);
  EXPECT_EQ(changed.err, "quillara-tiles: view file \"" + view + "\": \"" + view + "\" has changed since \"" +
                             path("bad jobs/plan.json") + "\" was made; plan again\n");
  fs::remove(view);
  EXPECT_NE(tiles({"run", path("bad jobs"), "1"}).err.find("\"" + view + "\" has vanished since"), std::string::npos);
  EXPECT_FALSE(fs::exists(path("bad jobs/tiles/tile_1.bin")));
  EXPECT_FALSE(fs::exists(path("bad jobs/model.ply")));
  EXPECT_EQ(tiles({"run", path("elsewhere")}).err,
            "quillara-tiles: \"" + path("elsewhere/plan.json") + "\" is missing: plan the run first\n");
}

}  // namespace
