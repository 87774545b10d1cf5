#include <gtest/gtest.h>
#include <png.h>

#include <cmath>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "image/CTensor.h"
#include "src/camera.h"
#include "src/scene_input.h"
#include "src/settings.h"
#include "tests/io_test_support.h"

using io_test::expect_runtime_error;
using io_test::scratch_path;

namespace {

// Restores the run-level results that read_views writes.
class SceneInput : public testing::Test {
 protected:
  void SetUp() override { saved_ = {depth_range_min, depth_range_max, average_depth}; }
  void TearDown() override {
    depth_range_min = saved_[0];
    depth_range_max = saved_[1];
    average_depth = saved_[2];
  }

  // Writes a view file of a camera with identity rotation, translation (1, 2, 3), fx 500,
  // fy 510, file principal point (1.5, 0.75), declared size 4 x 3, a colour image of
  // image_w x image_h and the given 16-bit depth samples (4 x 3).
  std::string make_view(const std::string& name, const std::vector<unsigned short>& depth, int image_w = 4,
                        int image_h = 3) {
    const std::string depth_png = scratch_path(name + "_depth.png");
    io_test::write_grey16_png(depth_png, 4, 3, depth);
    const std::string image_png = scratch_path(name + "_image.png");
    CTensor<unsigned char> rgb(image_w, image_h, 3);
    for (std::size_t i = 0; i < rgb.size(); ++i) rgb.data[i] = static_cast<unsigned char>(i);
    rgb.writeToPNG(image_png.c_str());
    const std::string view = scratch_path(name + ".txt");
    std::ofstream(view) << "500 0 1.5\n0 510 0.75\n0 0 1\n1 0 0\n0 1 0\n0 0 1\n1 2 3\n4 3\n"
                        << image_png << "\n" << depth_png << "\n";
    return view;
  }

  // Reads the views and returns what was printed.
  std::string read(const std::vector<std::string>& files, bool average_given) {
    testing::internal::CaptureStdout();
    read_views(files, cameras_, camera_ptrs_, depthmaps_, average_given);
    return testing::internal::GetCapturedStdout();
  }

  std::vector<Camera> cameras_;
  std::vector<Camera*> camera_ptrs_;
  std::vector<CMatrix<float>> depthmaps_;
  std::vector<float> saved_;
};

std::vector<unsigned short> constant_depth(unsigned short v) { return std::vector<unsigned short>(12, v); }

}  // namespace

TEST_F(SceneInput, ReadsPoseIntrinsicsDepthAndImage) {
  const std::string depth_png = scratch_path("depth.png");
  io_test::write_grey16_png(depth_png, 2, 1, {1234, 65535});
  const std::string image_png = scratch_path("image.png");
  CTensor<unsigned char> rgb(3, 2, 3);
  for (std::size_t i = 0; i < rgb.size(); ++i) rgb.data[i] = static_cast<unsigned char>(10 + i);
  rgb.writeToPNG(image_png.c_str());
  // Rotation by 90 degrees about z, written row by row, all on one line.
  const std::string view = scratch_path("view.txt");
  std::ofstream(view) << "500 0.5 1.25 0 510 0.75 0 0 1   0 -1 0 1 0 0 0 0 1  1 2 3  3 2 " << image_png << " "
                      << depth_png << " trailing words are ignored";

  Camera camera;
  CMatrix<float> depth;
  read_view(view, 7, camera, depth);
  EXPECT_EQ(camera.index, 7);
  EXPECT_FALSE(camera.image_coordinates);
  // Stored by columns: K[3] is row 0, column 1.
  EXPECT_EQ(camera.K[0], 500.0f);
  EXPECT_EQ(camera.K[3], 0.5f);
  EXPECT_EQ(camera.K[4], 510.0f);
  EXPECT_EQ(camera.K[6], 2.0f - 1.25f);  // mirrored: (width - 1) - cx
  EXPECT_EQ(camera.K[7], 1.0f - 0.75f);
  EXPECT_EQ(camera.K[8], 1.0f);
  EXPECT_EQ(camera.R[1], 1.0f);
  EXPECT_EQ(camera.R[3], -1.0f);
  // centre = -R^T t = -(2, -1, 3)
  EXPECT_EQ(camera.center[0], -2.0f);
  EXPECT_EQ(camera.center[1], 1.0f);
  EXPECT_EQ(camera.center[2], -3.0f);
  EXPECT_EQ(camera.image_filename, image_png);

  ASSERT_EQ(depth.xSize, 2);
  ASSERT_EQ(depth.ySize, 1);
  EXPECT_EQ(depth(0, 0), 1.234f);
  EXPECT_EQ(depth(1, 0), 65.535f);

  ASSERT_EQ(camera.image.xSize, 3);
  ASSERT_EQ(camera.image.ySize, 2);
  const uchar4 p = camera.image(1, 1);  // planes are 6 samples apart
  EXPECT_EQ(p.x, 14);
  EXPECT_EQ(p.y, 20);
  EXPECT_EQ(p.z, 26);
  EXPECT_EQ(p.w, 255);
}

TEST_F(SceneInput, LargerImageScalesIntrinsics) {
  const std::string view = make_view("big", constant_depth(1000), 8, 6);
  read({view}, true);
  const Camera& c = cameras_[0];
  EXPECT_EQ(c.width, 8);
  EXPECT_EQ(c.height, 6);
  EXPECT_EQ(c.K[0], 1000.0f);
  EXPECT_EQ(c.K[4], 1020.0f);
  EXPECT_EQ(c.K[6], 2.0f * (3.0f - 1.5f));  // the mirrored value is scaled
  EXPECT_EQ(c.K[7], 2.0f * (2.0f - 0.75f));
  EXPECT_EQ(depthmaps_[0].xSize, 4);
  EXPECT_EQ(depthmaps_[0].ySize, 3);
  EXPECT_EQ(camera_ptrs_[0], &cameras_[0]);
}

TEST_F(SceneInput, EightBitDepthIsThousandths) {
  const std::string depth_png = scratch_path("depth8.png");
  io_test::write_raw_png(depth_png, 4, 3, PNG_COLOR_TYPE_GRAY, 8, std::vector<unsigned char>(12, 255));
  const std::string view = make_view("v", constant_depth(0));
  std::string text = io_test::read_bytes(view);
  text.replace(text.find(scratch_path("v_depth.png")), scratch_path("v_depth.png").size(), depth_png);
  io_test::write_bytes(view, text);
  const std::string out = read({view}, true);
  EXPECT_EQ(depthmaps_[0](3, 2), 0.255f);
  EXPECT_EQ(depth_range_max, 0.255f);
  EXPECT_EQ(out, "Reading file " + view + "\nmaximum depth = 0.255\n");
}

TEST_F(SceneInput, MaximumOfTwoViewsIsTheLarger) {
  std::vector<unsigned short> a = constant_depth(100);
  a[5] = 500;
  const std::string v0 = make_view("a", a);
  const std::string v1 = make_view("b", constant_depth(2000));
  average_depth = 7.5f;
  const std::string out = read({v0, v1}, true);
  EXPECT_EQ(out, "Reading file " + v0 + "\nReading file " + v1 + "\nmaximum depth = 2\n");
  EXPECT_EQ(depth_range_max, 2.0f);
  EXPECT_EQ(depth_range_min, -1.0f);  // the minimum statistic never runs
  EXPECT_EQ(average_depth, 7.5f);     // given on the command line
  ASSERT_EQ(camera_ptrs_.size(), 2u);
  EXPECT_EQ(camera_ptrs_[1], &cameras_[1]);
  EXPECT_EQ(cameras_[1].index, 1);
}

TEST_F(SceneInput, MaximumOfThreeViewsIsTheMiddleOne) {
  const std::string v0 = make_view("a", constant_depth(3000));
  const std::string v1 = make_view("b", constant_depth(1000));
  const std::string v2 = make_view("c", constant_depth(2000));
  read({v0, v1, v2}, true);
  EXPECT_EQ(depth_range_max, 2.0f);

  // All-zero maps count with a maximum of 0.
  const std::string z0 = make_view("z0", constant_depth(0));
  const std::string z1 = make_view("z1", constant_depth(0));
  const std::string out = read({z0, v1, z1}, true);
  EXPECT_EQ(depth_range_max, 0.0f);
  EXPECT_EQ(depthmaps_[0](0, 0), 0.0f);
  EXPECT_EQ(out.substr(out.rfind("maximum")), "maximum depth = 0\n");
}

TEST_F(SceneInput, AverageDepthFromCentralWindowsWhenNotGiven) {
  // For 4 x 3 maps the window is x 1..2, y 0..1. Outside it every pixel is huge.
  std::vector<unsigned short> a(12, 60000), b(12, 60000);
  const int window[] = {1, 2, 5, 6};
  for (int k = 0; k < 4; ++k) {
    a[window[k]] = static_cast<unsigned short>(1000 + k);  // 1.000 .. 1.003
    b[window[k]] = static_cast<unsigned short>(2000 + k);  // 2.000 .. 2.003
  }
  const std::string v0 = make_view("a", a);
  const std::string v1 = make_view("b", b);
  const std::string out = read({v0, v1}, false);
  EXPECT_EQ(average_depth, 2.0f);  // element 4 of the 8 sorted values
  EXPECT_EQ(out, "Reading file " + v0 + "\nReading file " + v1 + "\nmaximum depth = 60\naverage depth = 2\n");
}

TEST_F(SceneInput, UnreadableViewFileFailsInThePngReader) {
  const std::string short_view = scratch_path("short.txt");
  std::ofstream(short_view) << "500 0 1.5 0 510 0.75 0 0 1 1 0 0 0 1 0 0 0 1 1 2 3 4 3";
  testing::internal::CaptureStdout();
  expect_runtime_error([&] { read_views({short_view}, cameras_, camera_ptrs_, depthmaps_, true); },
                       "CMatrix::readFromPNG: Cannot open file ");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Reading file " + short_view + "\n");

  Camera c;
  CMatrix<float> d;
  expect_runtime_error([&] { read_view(scratch_path("no_such_view.txt"), 0, c, d); },
                       "CMatrix::readFromPNG: Cannot open file ");
  EXPECT_EQ(c.K[0], 0.0f);
  EXPECT_EQ(c.width, 0);
  EXPECT_TRUE(c.image_filename.empty());
}

TEST(WorkingRadii, SuperpixelAndPixelRadius) {
  // sqrt((640 * 480 / 5000) / pi) = sqrt(61.44 / pi)
  EXPECT_FLOAT_EQ(superpixel_radius(640, 480, 5000), 4.4223251f);
  EXPECT_FLOAT_EQ(superpixel_radius(100, 100, 7), 21.324362f);  // 10000 / 7 is not whole
  EXPECT_FLOAT_EQ(pixel_radius(5.0f, 2.0f, 500.0f), 0.02f);
  // Doubling the average depth doubles every radius.
  EXPECT_EQ(pixel_radius(9.0f * 4.4f, 2.6f, 525.0f) * 2.0f, pixel_radius(9.0f * 4.4f, 5.2f, 525.0f));
}

TEST(CameraRecord, NewCameraIsZeroAndCopiesItsImage) {
  Camera a;
  for (float v : a.K) EXPECT_EQ(v, 0.0f);
  EXPECT_EQ(a.index, 0);
  EXPECT_EQ(a.width, 0);
  EXPECT_EQ(a.image.data, nullptr);
  EXPECT_EQ(a.min_depth, 0.0f);
  a.image.setSize(2, 2);
  a.image(1, 1) = make_uchar4(1, 2, 3, 4);
  Camera b = a;
  a.image(1, 1).x = 9;
  EXPECT_EQ(b.image(1, 1).x, 1);
}

TEST(CameraRecord, LoadImageRefusesOnePlaneImages) {
  const std::string path = scratch_path("grey.pgm");
  CTensor<unsigned char> grey(2, 2, 1);
  grey.writeToPGM(path.c_str());
  expect_runtime_error([&] { loadImage(path); },
                       "loadImage: expected an image with 3 or 4 planes and a non-zero size, got (2, 2, 1)");
}

TEST(KeyframeDepthRange, FourNeighboursAroundTheAxis) {
  Camera c;
  c.R[0] = c.R[4] = c.R[8] = 1.0f;  // looks along +z
  std::vector<Camera> n(4);
  const float offsets[4][2] = {{1, 0}, {-1, 0}, {0, 1}, {0, -1}};
  for (int i = 0; i < 4; ++i) {
    n[i].center[0] = offsets[i][0];
    n[i].center[1] = offsets[i][1];
    c.neighbours.push_back(&n[i]);
  }
  testing::internal::CaptureStdout();
  estimate_keyframe_depth_range(c);
  const std::string out = testing::internal::GetCapturedStdout();
  // The angle limit is reached where d / sqrt(d^2 + 1) = 0.9999939, near d = 286.3.
  EXPECT_NEAR(c.max_depth, 286.3f, 2.0f);
  EXPECT_EQ(c.min_depth, 3.0f);
  std::ostringstream expected;
  expected << " max_depth = " << c.max_depth << "  min_depth = 3\n";
  EXPECT_EQ(out, expected.str());
}

TEST(KeyframeDepthRange, TooFewNeighboursShrinkTheRange) {
  Camera c;
  c.R[0] = c.R[4] = c.R[8] = 1.0f;
  std::vector<Camera> n(2);
  n[0].center[0] = 1.0f;
  n[1].center[0] = -1.0f;
  c.neighbours = {&n[0], &n[1]};
  testing::internal::CaptureStdout();
  estimate_keyframe_depth_range(c);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), " max_depth = 0.000976562  min_depth = 3\n");
  EXPECT_EQ(c.max_depth, 1.0f / 1024.0f);

  Camera lonely;
  testing::internal::CaptureStdout();
  estimate_keyframe_depth_range(lonely);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(lonely.max_depth, 0.0f);
}
