#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/import_test_support.h"
#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"

// The importer, the generator and the evaluator on files a user might bring: each bad input ends
// in time with exit status 1 and one line naming the file or option and the cause, and leaves
// nothing behind.

namespace fs = std::filesystem;
using import_test::Generated;
using import_test::generate;

namespace {

struct Case {
  std::string name;
  std::vector<std::string> args;
  std::string err;     // the whole of standard error
  bool whole = true;   // false: err is its beginning
};

void expect_cases(const char* program, const std::string& dir, const std::vector<Case>& cases) {
  e2e::Limits limits;
  limits.seconds = 120;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const e2e::Result r = e2e::run(program, dir, c.args, {}, limits);
    EXPECT_EQ(r.status, 1) << r;
    if (c.whole) EXPECT_EQ(r.err, c.err);
    else EXPECT_EQ(r.err.substr(0, c.err.size()), c.err) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
  }
}

// A float depth-array file with every value multiplied by `factor`, and value `k` set to `value`
// when k is not negative.
void rewrite_depth_array(const std::string& path, double factor, long k = -1, float value = 0) {
  std::string bytes = io_test::read_bytes(path);
  std::size_t body = 0;
  for (int amp = 0; amp < 3; ++amp) body = bytes.find('&', body) + 1;
  for (std::size_t at = body, i = 0; at + 4 <= bytes.size(); at += 4, ++i) {
    float v;
    std::memcpy(&v, bytes.data() + at, 4);
    v = static_cast<long>(i) == k ? value : static_cast<float>(v * factor);
    std::memcpy(bytes.data() + at, &v, 4);
  }
  io_test::write_bytes(path, bytes);
}

std::string copy_of(const std::string& from, const std::string& to) {
  fs::copy(from, to, fs::copy_options::recursive);
  return to;
}

}  // namespace

// Each reason why fewer than two views remain is said; files the importer cannot use are named
// before anything is written, and a write that fails takes back what the run wrote.
TEST(ImportBadInput, ReasonsAndNothingLeftBehind) {
  const std::string root = io_test::fresh_scratch_dir();
  const Generated colmap = generate(root + "/colmap", scene::Layout::colmap_text, 3);
  const Generated tum = generate(root + "/tum", scene::Layout::tum, 3);
  const Generated log = generate(root + "/log", scene::Layout::log, 3);
  const std::string p = "quillara-import: ";

  const std::string no_stereo = copy_of(colmap.dir, root + "/no_stereo");
  fs::remove_all(no_stereo + "/stereo");
  const std::string geometric_only = copy_of(colmap.dir, root + "/geometric_only");
  for (int v = 0; v < 3; ++v)
    fs::remove(geometric_only + "/stereo/depth_maps/image_0" + std::to_string(v) + ".png.photometric.bin");
  const std::string negative_fx = copy_of(colmap.dir, root + "/negative_fx");
  io_test::write_bytes(negative_fx + "/sparse/cameras.txt",
                       "1 PINHOLE 160 120 -131.2 131.2 79.5 59.5\n2 SIMPLE_PINHOLE 160 120 131.2 79.5 59.5\n");
  const std::string other_unit = copy_of(colmap.dir, root + "/other_unit");
  rewrite_depth_array(other_unit + "/stereo/depth_maps/image_01.png.geometric.bin", 1e6);
  const std::string bad_colour = copy_of(colmap.dir, root + "/bad_colour");
  io_test::write_bytes(bad_colour + "/images/image_02.png", "\x89PNG\r\n\x1a\n");

  const std::string no_poses = copy_of(tum.dir, root + "/no_poses");
  io_test::write_bytes(no_poses + "/groundtruth.txt", "# timestamp tx ty tz qx qy qz qw\n");
  const std::string late_colour = copy_of(tum.dir, root + "/late_colour");
  io_test::write_bytes(late_colour + "/rgb.txt",
                       "1300000001.0 rgb/1300000000.000000.jpg\n1300000001.1 rgb/1300000000.100000.jpg\n");
  const std::string short_log = copy_of(log.dir, root + "/short_log");
  std::string trajectory = io_test::read_bytes(short_log + "/trajectory.log");
  std::size_t line9 = 0;
  for (int n = 0; n < 8; ++n) line9 = trajectory.find('\n', line9) + 1;
  trajectory.erase(line9, trajectory.find('\n', line9) + 1 - line9);  // row 3 of the second block
  io_test::write_bytes(short_log + "/trajectory.log", trajectory);

  fs::create_directories(root + "/partial/depth_01.png");  // the second depth map cannot be written

  const std::string ws = " (text sparse model): 0 views to import; quillara needs at least 2 (";
  const std::string left_out = " registered images without a ";
  expect_cases(
      QUILLARA_IMPORT_BIN, root,
      {{"no source folder", {"tum", root + "/nothing", "out"}, p + root + "/nothing: no such folder\n"},
       {"no stereo folder", {"colmap", no_stereo, "out"},
        p + "workspace " + no_stereo + ws + "no folder " + no_stereo +
            "/stereo/depth_maps (run the dense stereo step first); depth maps: 0 geometric, 0 photometric; 3" +
            left_out + "depth map left out, the first image_00.png)\n"},
       {"photometric asked", {"colmap", geometric_only, "out", "--depth-maps", "photometric"},
        p + "workspace " + geometric_only + ws + "depth maps: 0 geometric, 0 photometric; 3" + left_out +
            "photometric depth map left out, the first image_00.png)\n"},
       {"negative fx", {"colmap", negative_fx, "out"},
        p + negative_fx + "/sparse/cameras.txt: camera 1 has a focal length that is not positive\n"},
       {"one map in another unit", {"colmap", other_unit, "out"},
        p + other_unit +
            "/stereo/depth_maps/image_01.png.geometric.bin: its median depth ",
        false},
       {"damaged colour image", {"colmap", bad_colour, "out"},
        p + "CTensor::readFromPNG: File " + bad_colour + "/images/image_02.png is truncated\n"},
       {"no poses", {"tum", no_poses, "out", "--intrinsics", "131.2,131.2,79.5,59.5"},
        p + "RGB-D sequence " + no_poses + ": 0 views to import; quillara needs at least 2 (the trajectory " +
            no_poses + "/groundtruth.txt holds no pose; 3 depth frames without a pose within 20 ms left out)\n"},
       {"no colour within 20 ms", {"tum", late_colour, "out", "--intrinsics", "131.2,131.2,79.5,59.5"},
        p + "RGB-D sequence " + late_colour +
            ": 0 views to import; quillara needs at least 2 (3 depth frames without a colour frame within 20 ms "
            "left out)\n"},
       {"trajectory row missing", {"log", short_log, "out", "--intrinsics", "131.2,131.2,79.5,59.5"},
        p + short_log +
            "/trajectory.log: line 10: expected row 4 of the matrix of the block that starts at line 6, 4 numbers; "
            "found 3 fields\n"},
       {"default intrinsics", {"log", log.dir, "out"},
        p + log.dir +
            "/depth/000000.png: the image is 160 x 120 pixels, but the default intrinsics are for 640 x 480; give "
            "--intrinsics FX,FY,CX,CY\n"},
       {"write fails", {"colmap", colmap.dir, "partial"},
        p + "write_depth_png: Cannot open file " + root + "/partial/depth_01.png: Is a directory\n"}});
  EXPECT_FALSE(fs::exists(root + "/out"));
  EXPECT_EQ(e2e::file_names(root + "/partial"), std::vector<std::string>{"depth_01.png"});

  // One absurd depth neither sets the scale nor empties the other views: it alone is dropped.
  const std::string one_wild = copy_of(colmap.dir, root + "/one_wild");
  rewrite_depth_array(one_wild + "/stereo/depth_maps/image_01.png.geometric.bin", 1, 160 * 60 + 80, 1e9f);
  const e2e::Result r = e2e::run(QUILLARA_IMPORT_BIN, root, {"colmap", one_wild, "wild_out"});
  ASSERT_EQ(r.status, 0) << r;
  EXPECT_NE(r.out.find("  dropped 1 depths beyond what a depth PNG holds at this scale (above 65.535)\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("  scale: 1 (lengths as in the source)\n"), std::string::npos) << r.out;
}

// The generator takes back what it wrote when a later file fails, and says why.
TEST(SceneBadInput, FailedWritesLeaveNothing) {
  const std::string root = io_test::fresh_scratch_dir();
  fs::create_directories(root + "/partial/depth_01.png");
  io_test::write_bytes(root + "/a_file", "");
  const std::string p = "quillara-scene: ";
  expect_cases(QUILLARA_SCENE_BIN, root,
               {{"write fails", {"--out", "partial", "--views", "3", "--width", "32", "--height", "24"},
                 p + "write_depth_png: Cannot open file " + root + "/partial/depth_01.png: Is a directory\n"},
                {"folder under a file", {"--out", "a_file/scene", "--width", "32", "--height", "24"},
                 p + "write_scene: cannot create the directory " + root + "/a_file/scene: Not a directory\n"},
                {"kind on the street", {"--out", "street", "--arrangement", "street", "--kind", "thin"},
                 p + "--kind cannot be used with --arrangement street: the street has its own objects "
                     "(see quillara-scene --help)\n"}});
  EXPECT_EQ(e2e::file_names(root + "/partial"), std::vector<std::string>{"depth_01.png"});
}

// Models and depth maps that do not fit the scene are refused, naming the file.
TEST(EvaluateBadInput, ModelsAndDepthMapsAreChecked) {
  const std::string root = io_test::fresh_scratch_dir();
  const Generated scene = generate(root + "/scene", scene::Layout::none, 3);
  const std::string header = "ply\nformat binary_little_endian 1.0\nelement vertex ";
  const std::string properties = "\nproperty float x\nproperty float y\nproperty float z\nend_header\n";
  io_test::write_bytes(root + "/huge.ply", header + "99999999999" + properties);
  io_test::write_bytes(root + "/negative.ply", header + "-5" + properties);
  const float nan = std::numeric_limits<float>::quiet_NaN(), xyz[3] = {nan, 0, 0};
  io_test::write_bytes(root + "/nan.ply",
                       header + "1" + properties + std::string(reinterpret_cast<const char*>(xyz), 12));
  generate(root + "/small", scene::Layout::none, 3);  // 160 x 120 as well: shrink one of its maps
  write_depth_png(root + "/small/depth_00.png", 80, 60, std::vector<uint16_t>(80 * 60, 3000));
  generate(root + "/more", scene::Layout::none, 4);

  const std::string p = "quillara-evaluate: ", within = "--within needs positive distances MM[,MM...], got '";
  std::vector<Case> cases = {
      {"vertex count too large", {scene.dir, "huge.ply"},
       p + "huge.ply is truncated: 99999999999 vertices of 12 bytes do not fit in 0 bytes\n"},
      {"negative vertex count", {scene.dir, "negative.ply"},
       p + "negative.ply: the vertex count '-5' is not a whole number from 0\n"},
      {"NaN point", {scene.dir, "nan.ply"}, p + "nan.ply: vertex 0 has a position that is not finite\n"},
      {"depth maps of another size", {scene.dir, "--depth-maps", "small"},
       p + root + "/small/depth_00.png: depth map of 80 x 60 pixels, the scene's view 0 has 160 x 120\n"},
      {"more depth maps than views", {scene.dir, "--depth-maps", "more"},
       p + "more/view_03.txt: the scene " + scene.dir + " has only 3 views\n"}};
  for (const std::string bad : {"x", "2,", "-1", "0", "nan", ","})
    cases.push_back({"--within " + bad, {scene.dir, scene.dir + "/ground_truth.ply", "--within", bad},
                     p + within + bad + "' (see quillara-evaluate --help)\n"});
  expect_cases(QUILLARA_EVALUATE_BIN, root, cases);
}

// A model too large for memory: the evaluator streams it within a small allowance, and the
// breakdown, which holds the whole model, ends in one line naming the model, what it was doing and
// the size it needed, not an abort. Skipped under AddressSanitizer, whose operator new ends the
// program instead of throwing when memory runs out.
TEST(EvaluateBadInput, OutOfMemoryNamesTheModel) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "AddressSanitizer does not let operator new throw std::bad_alloc";
#endif
  const std::string root = io_test::fresh_scratch_dir();
  const Generated scene = generate(root + "/scene", scene::Layout::none, 3);
  const size_t points = 4000000;
  std::vector<float> xyz(3 * points);
  for (size_t i = 0; i < points; ++i) {
    xyz[3 * i] = static_cast<float>(i % 2000) * 1e-3f - 1.0f;
    xyz[3 * i + 1] = static_cast<float>(i / 2000) * 1e-3f - 1.0f;
  }
  io_test::write_bytes(root + "/big.ply", "ply\nformat binary_little_endian 1.0\nelement vertex " +
                                              std::to_string(points) +
                                              "\nproperty float x\nproperty float y\nproperty float z\nend_header\n" +
                                              std::string(reinterpret_cast<const char*>(xyz.data()), 4 * xyz.size()));
  e2e::Limits limits;
  limits.seconds = 300;
  limits.address_space = 300ll << 20;
  const e2e::Result r = e2e::run(QUILLARA_EVALUATE_BIN, root, {scene.dir, "big.ply", "--breakdown"}, {}, limits);
  EXPECT_EQ(r.status, 1) << r;
  EXPECT_NE(r.out.find("completeness: "), std::string::npos) << r;
  EXPECT_EQ(r.err, "quillara-evaluate: big.ply: out of memory while breaking completeness down (the whole model in "
                   "memory, about 420 MiB)\n");
}
