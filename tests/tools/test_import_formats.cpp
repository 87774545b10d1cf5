#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/import_test_support.h"
#include "formats/depth_png.h"
#include "tests/support/io_test_support.h"
#include "tools/import/colmap_model.h"
#include "tools/import/colmap_workspace.h"
#include "tools/import/depth_array.h"
#include "tools/import/depth_scaling.h"
#include "tools/import/import_arguments.h"
#include "tools/import/log_sequence.h"
#include "tools/import/tum_sequence.h"

using io_test::expect_runtime_error;
using io_test::scratch_path;
using io_test::write_bytes;
using namespace importer;

namespace {

template <typename T>
void put(std::string& out, T value) {
  char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));  // the test machines are little-endian, as the files are
  out.append(bytes, sizeof(T));
}

std::string binary_camera(uint32_t id, int32_t model, std::vector<double> params) {
  std::string out;
  put<uint32_t>(out, id);
  put<int32_t>(out, model);
  put<uint64_t>(out, 640);
  put<uint64_t>(out, 480);
  for (double p : params) put(out, p);
  return out;
}

std::string with_count(uint64_t count, const std::string& entries) {
  std::string out;
  put(out, count);
  return out + entries;
}

}  // namespace

// Integer sources keep every stored value; float sources scale by powers of ten only when the
// largest depth would overflow or the median would have fewer than a thousand steps.
TEST(DepthScaling, IntegerSourcesKeepTheirValuesAndFloatSourcesScaleWhenNeeded) {
  for (double depth_scale : {5000.0, 1000.0, 100.0, 4096.5}) {
    const double s = scale_for_integer_depths(depth_scale);
    for (int v = 1; v <= 65535; ++v)
      ASSERT_EQ(depth_to_thousandths(s * (v / depth_scale)), v) << "depth scale " << depth_scale;
  }
  EXPECT_EQ(scale_for_float_depths(6.2, 3.1), 1.0);
  EXPECT_DOUBLE_EQ(scale_for_float_depths(70, 30), 0.1);        // 70000 thousandths would overflow
  EXPECT_DOUBLE_EQ(scale_for_float_depths(0.2, 0.05), 100.0);   // 50 steps at the median become 5000
  EXPECT_DOUBLE_EQ(scale_for_float_depths(0.5, 0.002), 100.0);  // as far as the largest depth allows
  EXPECT_EQ(scale_for_float_depths(60, 0.001), 1.0);
}

TEST(ColmapModel, RefusesOtherCameraModelsAndMalformedEntries) {
  const std::string path = scratch_path("model");
  // Each reader of a sparse model file, on `bytes`, must fail with `error` after the path.
  const auto refused = [&](auto reader, const std::string& bytes, const std::string& error) {
    write_bytes(path, bytes);
    expect_runtime_error([&] { reader(path); }, path + ": " + error);
  };
  const auto cameras_txt = [](const std::string& p) { read_colmap_cameras_text(p); };
  const auto cameras_bin = [](const std::string& p) { read_colmap_cameras_binary(p); };
  const auto images_txt = [](const std::string& p) { read_colmap_images_text(p); };
  const auto images_bin = [](const std::string& p) { read_colmap_images_binary(p); };
  const std::string refusal =
      " model; only PINHOLE and SIMPLE_PINHOLE cameras can be imported (undistort the images first)";
  refused(cameras_txt, "# a comment\n1 PINHOLE 640 480 500 500 320 240\n3 OPENCV 640 480 1 2 3 4 5 6 7 8\n",
          "camera 3 uses the OPENCV" + refusal);
  refused(cameras_bin,
          with_count(2, binary_camera(1, 1, {500, 500, 320, 240}) + binary_camera(7, 4, {1, 2, 3, 4, 5, 6, 7, 8})),
          "camera 7 uses the OPENCV" + refusal);
  refused(cameras_bin, with_count(1, binary_camera(2, 99, {})), "camera 2 uses the unknown (number 99)" + refusal);
  refused(cameras_txt, "1 PINHOLE 640 480 500 500 320\n", "line 1: a PINHOLE camera has 4 parameters, found 3");
  refused(cameras_bin, with_count(1, binary_camera(1, 0, {500, 320, 240})) + "x", "has data behind its last entry");
  refused(images_txt, "\n1 1 0 0 0 0 0 0 1\n\n", "line 2: expected IMAGE_ID QW QX QY QZ TX TY TZ CAMERA_ID NAME");
  refused(images_txt, "1 1 0 zero 0 0 0 0 1 a.png\n\n", "line 1: expected numbers as pose");
  refused(images_txt, "1 1 0 0 0 0 0 0 1 a.png\n1.5 2.5\n", "line 2: expected 2-D points as triples X Y POINT3D_ID");

  // One image whose 2-D points are cut off.
  std::string image;
  put<uint32_t>(image, 1);
  for (double v : {1.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0}) put(image, v);
  put<uint32_t>(image, 1);
  image += std::string("a.png") + '\0';
  put<uint64_t>(image, 2);
  refused(images_bin, with_count(1, image + std::string(30, '\0')),
          "ends in the middle of an entry (truncated, or not a sparse model file)");
  write_bytes(path, with_count(1, image + std::string(48, '\0')));
  EXPECT_EQ(read_colmap_images_binary(path).at(0).name, "a.png");
}

TEST(ColmapWorkspace, NeedsASparseModelWhoseImagesHaveCameras) {
  const std::string ws = io_test::fresh_scratch_dir();
  std::filesystem::create_directories(ws + "/sparse");
  expect_runtime_error([&] { read_colmap_workspace(ws, DepthChoice::automatic); },
                       ws + "/sparse: no sparse model (cameras.bin and images.bin, or cameras.txt and images.txt)");
  write_bytes(ws + "/sparse/cameras.txt", "1 SIMPLE_PINHOLE 640 480 500 320 240\n");
  write_bytes(ws + "/sparse/images.txt", "4 1 0 0 0 0 0 0 2 a.png\n\n");
  expect_runtime_error(
      [&] { read_colmap_workspace(ws, DepthChoice::automatic); },
      ws + "/sparse/images.txt: image 4 refers to camera 2, which " + ws + "/sparse/cameras.txt does not hold");
}

// Element (x, y) of a one-channel array lies at y * width + x behind the text header.
TEST(DepthArrayFile, ReadsRowsAndRefusesBadHeadersAndSizes) {
  const std::string path = scratch_path("depth.bin");
  std::string data = "3&2&1&";
  for (float v : {1.f, 2.f, 3.f, 4.f, 5.f, 6.5f}) put(data, v);
  write_bytes(path, data);
  const DepthArray a = read_depth_array(path);
  ASSERT_EQ(a.width, 3);
  ASSERT_EQ(a.height, 2);
  EXPECT_EQ(a.values, (std::vector<float>{1, 2, 3, 4, 5, 6.5f}));

  write_bytes(path, data.substr(0, data.size() - 1));
  expect_runtime_error([&] { read_depth_array(path); }, path + ": holds 23 bytes of data, but 3 x 2 floats take 24");
  write_bytes(path, "3&2&3&" + data.substr(6));
  expect_runtime_error([&] { read_depth_array(path); }, path + ": has 3 channels; a depth map has 1");
  write_bytes(path, "P5\n3 2\n255\n");
  expect_runtime_error([&] { read_depth_array(path); },
                       path + ": expected a header \"width&height&channels&\" (not a depth map file)");
}

// Between two entries the pose is interpolated; beyond the ends, or across a gap, only an entry
// close in time gives one.
TEST(TumSequence, PosesComeFromTheTrajectoryAroundTheFrameTime) {
  const double h = std::sqrt(0.5);
  const std::vector<TimedPose> trajectory = {{0.0, {0, 0, 0}, {1, 0, 0, 0}},
                                             {0.1, {1, 0, 0}, {h, 0, 0, h}},  // 90 degrees about z
                                             {1.0, {2, 0, 0}, {1, 0, 0, 0}}};
  const std::optional<Pose> mid = pose_at(trajectory, 0.05);
  ASSERT_TRUE(mid);
  // Camera-to-world: 45 degrees about z at centre (0.5, 0, 0); world-to-camera is its inverse.
  const double c = std::cos(M_PI / 4), s = std::sin(M_PI / 4);
  const double expected_R[9] = {c, s, 0, -s, c, 0, 0, 0, 1};
  for (int k = 0; k < 9; ++k) EXPECT_NEAR(mid->R.m[k], expected_R[k], 1e-12) << k;
  EXPECT_NEAR(mid->t.x, -0.5 * c, 1e-12);
  EXPECT_NEAR(mid->t.y, 0.5 * s, 1e-12);

  // Next to the entry at 0.1 with a gap behind it: that entry's pose, camera centre (1, 0, 0).
  const std::optional<Pose> near = pose_at(trajectory, 0.115);
  ASSERT_TRUE(near);
  EXPECT_NEAR(near->t.x, 0, 1e-12);
  EXPECT_NEAR(near->t.y, 1, 1e-12);
  EXPECT_FALSE(pose_at(trajectory, 0.5));    // inside a gap of 0.9 s
  EXPECT_FALSE(pose_at(trajectory, -0.03));  // before the first entry
  EXPECT_TRUE(pose_at(trajectory, 1.01));
}

TEST(TumSequence, MalformedListsNameFileAndLine) {
  const std::string dir = io_test::fresh_scratch_dir(), truth = dir + "/groundtruth.txt";
  write_bytes(dir + "/rgb.txt", "# colour\n1.0 rgb/1.png\n");
  write_bytes(dir + "/depth.txt", "# depth\n1.0 depth/1.png extra\n");
  const auto refused = [&](const std::string& text, const std::string& trajectory, const std::string& error) {
    write_bytes(truth, text);
    expect_runtime_error([&] { read_tum_sequence(dir, trajectory, {525, 525, 319.5, 239.5}, 5000); }, error);
  };
  refused("1.0 0 0 0 0 0 0 1\n", truth, dir + "/depth.txt: line 2: expected \"timestamp path\"");
  write_bytes(dir + "/depth.txt", "1.0 depth/1.png\n");
  refused("# truth\n\n1.0 0 0 0 0 0 1\n", truth, truth + ": line 3: expected \"timestamp tx ty tz qx qy qz qw\"");
  refused("1.0 0 0 nan 0 0 0 1\n", truth, truth + ": line 1: expected \"timestamp tx ty tz qx qy qz qw\" as numbers");
  refused("1.0 0 0 0 0 0 0 0\n", truth, truth + ": line 1: zero rotation quaternion");
  refused("", dir + "/missing.txt", dir + "/missing.txt: cannot open");
}

TEST(LogSequence, MalformedTrajectoriesNameFileAndLine) {
  const std::string dir = io_test::fresh_scratch_dir(), log = dir + "/trajectory.log";
  for (const char* sub : {"/color", "/depth"}) std::filesystem::create_directories(dir + sub);
  for (const char* name : {"/color/0.png", "/color/1.png", "/depth/0.png", "/depth/1.png"}) write_bytes(dir + name, "");
  const Intrinsics k{525, 525, 319.5, 239.5};
  const std::string identity = "1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 0 1\n";
  const auto read = [&](const std::string& text) {
    write_bytes(log, text);
    return read_log_sequence(dir, log, k, 1000);
  };
  EXPECT_EQ(read("0 0 2\n" + identity).views.at(0).depth_path, dir + "/depth/1.png");
  const std::pair<std::string, std::string> cases[] = {
      {"0 0 1\n" + identity + "1 1 2\n1 0 0 0\n", "line 7: the file ends inside a block of 5 lines"},
      {"0 0\n" + identity, "line 1: expected a block head \"id id frame\" of three integers"},
      {"0 0 1\n1 0 0 0\n0 1 0 0\n0 0 1 0\n0 0 1 1\n", "line 5: the last matrix row must be 0 0 0 1"},
      {"0 0 1\n1 0 0 0\n0 2 0 0\n0 0 1 0\n0 0 0 1\n", "line 2: the upper left 3x3 of the matrix is not a rotation"},
      {"0 0 1\n1 0 0 0\n0 1 0 x\n0 0 1 0\n0 0 0 1\n", "line 3: expected a matrix row of 4 numbers"},
      {"0 0 3\n" + identity, "frame 3 does not exist; frames count from 1 to the 2 images of depth/"},
  };
  for (const auto& [text, error] : cases) expect_runtime_error([&] { read(text); }, log + ": " + error);
  write_bytes(dir + "/depth/2.png", "");
  expect_runtime_error([&] { read("0 0 1\n" + identity); }, dir + ": color/ holds 2 files but depth/ holds 3");
}

TEST(ImportArguments, OptionsBelongToTheirLayouts) {
  const ImportOptions ok = parse_import_arguments(
      {"--every=3", "log", "in", "out", "--intrinsics", "500,501,320.5,240", "--max-depth", "4"});
  // An option before the layout counts too; the end-to-end import shows --intrinsics arriving whole.
  EXPECT_EQ(ok.settings.every, 3);
  EXPECT_EQ(ok.settings.max_depth, 4);
  EXPECT_EQ(trajectory_of(ok), "in/trajectory.log");

  const std::vector<std::pair<std::vector<std::string>, std::string>> errors = {
      {{"colmap", "ws", "out", "--intrinsics", "1,2,3,4"},
       "--depth-scale, --trajectory and --intrinsics are for tum and log"},
      {{"tum", "d", "out", "--depth-maps", "geometric"}, "--depth-maps is for colmap"},
      {{"tum", "d", "out", "--intrinsics", "1,2,3"},
       "--intrinsics needs FX,FY,CX,CY with positive FX and FY, got '1,2,3'"},
      {{"tum", "d", "--every", "0", "out"}, "--every needs a positive integer, got '0'"},
      {{"tum", "d"}, "expected LAYOUT SOURCE OUTDIR, got 2 arguments"},
      {{"ply", "d", "out"}, "unknown layout 'ply'; expected colmap, tum or log"},
  };
  for (const auto& [args, error] : errors) expect_runtime_error([&] { parse_import_arguments(args); }, error);
}
