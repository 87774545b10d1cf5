#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"

// Runs the quillara binary and checks its streams and exit status for every way the command line
// can end a run before any scene work.

namespace {

namespace fs = boost::filesystem;

using e2e::Result;

class CommandLine : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = io_test::fresh_scratch_dir();
  }
  Result run(const std::vector<std::string>& args) { return e2e::run(QUILLARA_BIN, dir_.string(), args); }
  void touch(const std::string& name) { std::ofstream(dir_ / name) << "view\n"; }
  bool exists(const std::string& name) { return fs::exists(dir_ / name); }

  fs::path dir_;
};

// The usage text of quillara at width 80, as a user sees it.
const char* const expected_usage =
    "Usage: quillara [options] -- camera_00 camera_01 ...\n"
    "\n"
    "Required: -o (--out-dir) and --depth-avg. Each camera_NN is a view file;\n"
    "README.md describes its format and how to choose --depth-avg.\n"
    "\n"
    "  -h, --help            Print this help.\n"
    "      --version         Print the version of the program.\n"
    "  -o, --out-dir         The output directory.\n"
    "      --depth-avg       The average depth of the scene. This defines the radius\n"
    "                        of the smoothing kernel.\n"
    "      --alpha-sp        The strength of the data term on the superpixel level.\n"
    "                        Default is 0.1\n"
    "      --beta-sp         The strength of the collision term on the superpixel\n"
    "                        level. Default is 1\n"
    "      --alpha           The strength of the data term. Default is 0.001\n"
    "      --beta            The strength of the collision term. Default is 1\n"
    "      --min-support-sp  The minimum support of a point in the superpixel level.\n"
    "                        Points with less support will be removed from the\n"
    "                        reconstruction. Default is 2.0\n"
    "      --min-support     The minimum support of a point. Points with less support\n"
    "                        will be removed from the reconstruction. Default is 3.0\n"
    "      --superpixels     The number of superpixels generated per image. Default\n"
    "                        is 5000\n"
    "      --preview         After the run, write DIR/preview/view_NN.png per view:\n"
    "                        the input image, the rendered model and its shaded\n"
    "                        normals side by side.\n"
    "      --visible-support Instead of the fixed minimum support levels, keep a\n"
    "                        point when the other views that agree with it give this\n"
    "                        share (above 0, at most 1) of what the views that see it\n"
    "                        could give; the fine points then start on planes fitted\n"
    "                        to their own measurements, with no superpixel model, and\n"
    "                        --alpha defaults to 0.01. Suits few views. Off by\n"
    "                        default; 0.3 is a good start.\n"
    "      --visible-floor   With --visible-support, the support every point needs at\n"
    "                        least; 0 keeps points that no other view can see.\n"
    "                        Default is 0.5\n"
    "      --ply-colors      The names of the colour properties in the model files:\n"
    "                        diffuse (diffuse_red, diffuse_green, diffuse_blue) or\n"
    "                        standard (red, green, blue, which common point-cloud\n"
    "                        readers expect). Default is diffuse\n"
    "      --improve-cameras Correct the turn and position of every camera against\n"
    "                        the images and measured depth maps of the other views,\n"
    "                        in three passes, each followed by the model made anew\n"
    "                        from the measured depth maps; the rig stays where the\n"
    "                        given poses put it. Writes the refined views to\n"
    "                        DIR/views/. Needs the device BLAS.\n"
    "      --backface-test   Remove points that show their back to a view, before\n"
    "                        each support filter of the fine model, and write the\n"
    "                        model before and after the second removal.\n"
    "      --max-memory      Fuse in tiles of space, one after another, so that the\n"
    "                        run needs at most this much memory: bytes, or with K, M\n"
    "                        or G, such as 8G.\n";

const Result not_enough{"", "not enough files\n", 1};
const std::string out_dir_row = "  -o, --out-dir \tThe output directory.\n";
const std::string depth_avg_row =
    "      --depth-avg \tThe average depth of the scene. This defines the radius of the smoothing kernel.\n";

// Usage, version, missing required options (status 0 on purpose) and arguments a run cannot work
// with (it would never end, or end with nothing): all before the output directory is made.
TEST_F(CommandLine, EndsBeforeAnythingIsCreated) {
  const Result usage{expected_usage, "", 0};
  const auto missing = [](const std::string& rows) {
    return Result{"", "The following options are required:\n" + rows, 0};
  };
  // Status 1 and the check's one line: "Option 'NAME' requires WHAT".
  const auto bad = [](const std::string& name, const std::string& what) {
    return Result{"", "Option '" + name + "' requires " + what + "\n", 1};
  };
  const Result depth = bad("--depth-avg", "a positive finite argument");
  const Result count = bad("--superpixels", "an argument from 1 to 2147483647");
  const Result share = bad("--visible-support", "an argument above 0 and at most 1");
  const auto with = [](std::vector<std::string> more) {
    more.insert(more.begin(), {"-o", "out", "--depth-avg", "2"});
    more.insert(more.end(), {"--", "a", "b"});
    return more;
  };
  const std::pair<std::vector<std::string>, Result> cases[] = {
      {{}, usage},
      {{"-xh", "--bogus", "-o", "out"}, usage},  // unknown options pass; with --help without a word
      {{"--version", "-o", "out"}, {"quillara 1.0.0\n", "", 0}},
      {{"--help", "--depth-avg", "x"}, bad("--depth-avg", "a numeric argument")},  // parsing first
      {{"--depth-avg", "2", "--", "a", "b"}, missing(out_dir_row)},
      {{"-o", "out"}, missing(depth_avg_row)},
      {{"--bogus"},
       {"", "warning: unknown option '--bogus' is ignored\nThe following options are required:\n" + depth_avg_row +
                out_dir_row,
        0}},
      {{"--depth-avg", "2", "a", "-o", "out"}, missing(out_dir_row)},  // nothing behind a non-option is parsed
      {{"-o", "out", "--depth-avg", "x", "--", "a", "b"}, bad("--depth-avg", "a numeric argument")},
      {with({"--superpixels", "1.5"}), bad("--superpixels", "a numeric argument")},
      {{"-o", "", "--depth-avg", "2"}, bad("o", "a non-empty argument")},
      {{"--depth-avg", "2", "-ho"}, bad("o", "a non-empty argument")},
      {{"--out-dir=", "--depth-avg", "2"}, bad("--out-dir", "a non-empty argument")},
      {{"-o", "out", "--depth-avg"}, bad("--depth-avg", "a non-empty argument")},
      {{"-o", "out", "--min-support", "", "--depth-avg", "2"}, bad("--min-support", "a non-empty argument")},
      {{"-o", "out", "--depth-avg", "-1", "--", "a", "b"}, depth},
      {{"-o", "out", "--depth-avg=0", "--", "a", "b"}, depth},
      {{"-o", "out", "--depth-avg", "1e39", "--", "a", "b"}, depth},  // infinite as a float
      {with({"--depth-avg", "-3"}), depth},                            // every occurrence is checked
      {with({"--superpixels", "0"}), count},
      {with({"--superpixels", "99999999999"}), count},
      {with({"--alpha", "-0.1"}), bad("--alpha", "a finite argument of at least 0")},
      {with({"--min-support-sp", "-1"}), bad("--min-support-sp", "a finite argument of at least 0")},
      {with({"--visible-support", "0"}), share},
      {with({"--visible-support=2"}), share},
      {with({"--visible-floor", "-1"}), bad("--visible-floor", "a finite argument of at least 0")},
      {with({"--ply-colors", "rgb"}), bad("--ply-colors", "diffuse or standard")},
  };
  for (const auto& [args, expected] : cases) EXPECT_EQ(run(args), expected) << testing::PrintToString(args);
  EXPECT_FALSE(exists("out"));
}

// The directory is made without a shell; one that cannot hold the models ends the run at once.
// A failed run takes back the directory it made while it is empty, parents included; one that
// was there stays.
TEST_F(CommandLine, OutputDirectory) {
  touch("a");
  touch("file");
  fs::create_directories(dir_ / "there");
  for (const std::string name : {"my out", "x;touch PWNED", "deep/er/out", "there/out", "there"}) {
    EXPECT_EQ(run({"-o", name, "--depth-avg", "2", "--", "a"}), not_enough) << name;
    EXPECT_EQ(exists(name), name == "there") << name;
  }
  EXPECT_FALSE(exists("PWNED"));
  EXPECT_FALSE(exists("my"));
  EXPECT_FALSE(exists("deep"));
  EXPECT_TRUE(exists("there"));

  auto fails = [&](const std::string& out, const std::string& err) {
    EXPECT_EQ(run({"-o", out, "--depth-avg", "2", "--", "a", "a"}), (Result{"", err, 1})) << out;
  };
  fails("file", "cannot create output directory \"file\": it exists and is not a directory\n");
  fails("file/sub", "cannot create output directory \"file/sub\": Not a directory\n");
  fs::create_directories(dir_ / "taken/model.ply");
  fails("taken", "cannot write model file \"taken/model.ply\": it is a directory\n");
  const Result proc = run({"-o", "/proc", "--depth-avg", "2", "--", "a", "a"});
  EXPECT_EQ(proc.status, 1);
  EXPECT_TRUE(proc.err.starts_with("cannot write in output directory \"/proc\": ")) << proc;
  EXPECT_EQ(std::count(proc.err.begin(), proc.err.end(), '\n'), 1);
}

// The view files are checked after the output directory is made.
TEST_F(CommandLine, ViewFileListMistakes) {
  touch("a");
  fs::create_directories(dir_ / "folder");
  auto missing = [](const std::string& name) { return Result{"", "file \"" + name + "\" does not exist\n", 1}; };
  const std::pair<std::vector<std::string>, Result> cases[] = {
      {{"-o", "out", "--depth-avg", "2", "a", "b"}, not_enough},  // without "--" nothing is a view file
      {{"-o", "out2/deeper", "--depth-avg", "2", "--", "a"}, not_enough},
      {{"-o", "out", "--depth-avg", "2", "--"}, not_enough},
      {{"-o", "out", "--depth-avg", "2", "--", "a", "we\"ird & name", "missing"}, missing("we&\"ird && name")},
      {{"-o", "out", "--depth-avg", "2", "--", "sub/none", "a"}, missing("sub/none")},
      // Everything behind the first "--" is a file.
      {{"-o", "out", "--depth-avg", "2", "--", "-h"}, missing("-h")},
      {{"-o", "out", "--depth-avg", "2", "--", "a", "--"}, missing("--")},
      // A directory passes the existence test; the next name is the one reported.
      {{"-o", "out", "--depth-avg", "2", "--", "folder", "a", "gone"}, missing("gone")},
      // The first "--" may be an option's argument: the view files still start behind it. The
      // output directory "--" is made first, so the first view file is that directory.
      {{"--depth-avg", "2", "-o", "--", "--", "a"}, {"Reading file --\n", "view file \"--\": is a directory\n", 1}},
  };
  for (const auto& [args, expected] : cases) EXPECT_EQ(run(args), expected) << args.back();
  EXPECT_FALSE(exists("out"));  // made by the runs, and taken back with their failures
  EXPECT_FALSE(exists("out2"));
}

}  // namespace
