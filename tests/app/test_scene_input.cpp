#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "formats/depth_png.h"
#include "image/CTensor.h"
#include "src/core/camera.h"
#include "src/app/input_checks.h"
#include "src/app/refined_views.h"
#include "src/app/scene_input.h"
#include "src/core/settings.h"
#include "tests/support/io_test_support.h"

using io_test::expect_runtime_error;
using io_test::scratch_dir;
using io_test::scratch_path;

namespace {

class SceneInput : public testing::Test {
 protected:
  void SetUp() override { saved_ = {depth_range_min, depth_range_max, average_depth}; }
  void TearDown() override {
    depth_range_min = saved_[0];
    depth_range_max = saved_[1];
    average_depth = saved_[2];
  }

  // A view with identity rotation, t (1, 2, 3), fx 500, fy 510, principal point (1.5, 0.75) in
  // the file, declared size 4 x 3, an RGB image of image_w x image_h and a 4 x 3 depth map of
  // 16-bit samples (or the given depth PNG).
  std::string make_view(const std::string& name, const std::vector<unsigned short>& depth, int image_w = 4,
                        int image_h = 3, std::string depth_png = "") {
    if (depth_png.empty()) {
      depth_png = scratch_path(name + "_depth.png");
      write_depth_png(depth_png, 4, 3, depth);
    }
    const std::string image_png = scratch_path(name + "_image.png");
    CTensor<unsigned char>(image_w, image_h, 3).writeToPNG(image_png.c_str());
    const std::string view = scratch_path(name + ".txt");
    write_view_file(view, {{500, 0, 1.5, 0, 510, 0.75, 0, 0, 1}, {1, 0, 0, 0, 1, 0, 0, 0, 1}, {1, 2, 3}, 4, 3,
                           image_png, depth_png});
    return view;
  }

  // Reads the views and returns what was printed.
  std::string read(const std::vector<std::string>& files) {
    testing::internal::CaptureStdout();
    read_views(files, cameras_, camera_ptrs_, depthmaps_);
    return testing::internal::GetCapturedStdout();
  }

  std::vector<Camera> cameras_;
  std::vector<Camera*> camera_ptrs_;
  std::vector<CMatrix<float>> depthmaps_;
  std::vector<float> saved_;
};

std::vector<unsigned short> constant(unsigned short v) { return std::vector<unsigned short>(12, v); }

}  // namespace

TEST_F(SceneInput, ReadsPoseIntrinsicsDepthAndImage) {
  const std::string depth_png = scratch_path("depth.png"), image_png = scratch_path("image.png");
  write_depth_png(depth_png, 3, 2, {1234, 65535, 0, 0, 0, 0});
  CTensor<unsigned char> rgb(3, 2, 3);
  for (std::size_t i = 0; i < rgb.size(); ++i) rgb.data[i] = static_cast<unsigned char>(10 + i);
  rgb.writeToPNG(image_png.c_str());
  // Rotation by 90 degrees about z, row by row; line structure does not matter.
  const std::string view = scratch_path("view.txt");
  std::ofstream(view) << "500 0.5 1.25 0 510 0.75 0 0 1   0 -1 0 1 0 0 0 0 1  1 2 3  3 2 " << image_png << " "
                      << depth_png << "\n";
  Camera c;
  CMatrix<float> depth;
  read_view(view, 7, c, depth);
  EXPECT_EQ(c.index, 7);
  EXPECT_FALSE(c.image_coordinates);
  const std::vector<float> K(c.K, c.K + 9), R(c.R, c.R + 9), center(c.center, c.center + 3);
  EXPECT_EQ(K, (std::vector<float>{500, 0, 0, 0.5f, 510, 0, 2.0f - 1.25f, 1.0f - 0.75f, 1}));  // mirrored cx, cy
  EXPECT_EQ(R, (std::vector<float>{0, 1, 0, -1, 0, 0, 0, 0, 1}));                              // by columns
  EXPECT_EQ(center, (std::vector<float>{-2, 1, -3}));                                          // -R^T t
  EXPECT_EQ(depth(0, 0), 1.234f);
  EXPECT_EQ(depth(1, 0), 65.535f);
  ASSERT_EQ(c.image.xSize, 3);
  const uchar4 p = c.image(1, 1);
  EXPECT_EQ(std::vector<int>({p.x, p.y, p.z, p.w}), std::vector<int>({14, 20, 26, 255}));
}

TEST_F(SceneInput, ImageOfTheSameShapeScalesIntrinsics) {
  const std::string depth_png = scratch_path("depth_8x6.png");
  write_depth_png(depth_png, 8, 6, std::vector<unsigned short>(48, 1000));
  read({make_view("big", {}, 8, 6, depth_png)});
  const Camera& c = cameras_[0];
  EXPECT_EQ(std::vector<float>({c.K[0], c.K[4], c.K[6], c.K[7]}),
            std::vector<float>({1000.0f, 1020.0f, 2.0f * (3.0f - 1.5f), 2.0f * (2.0f - 0.75f)}));
  EXPECT_EQ(std::vector<int>({c.width, c.height, depthmaps_[0].xSize, depthmaps_[0].ySize}),
            std::vector<int>({8, 6, 8, 6}));
}

// Two views take the larger maximum; three the middle one, neither the first, the last nor an
// extreme, and all-zero maps count with a maximum of 0.
TEST_F(SceneInput, MaximumDepthIsTheUpperMedianOfTheViewMaxima) {
  std::vector<unsigned short> a = constant(100);
  a[5] = 500;
  const std::string v0 = make_view("a", a), v1 = make_view("b", constant(2000));
  average_depth = 7.5f;
  EXPECT_EQ(read({v0, v1}), "Reading file " + v0 + "\nReading file " + v1 + "\nmaximum depth = 2\n");
  EXPECT_EQ(depth_range_max, 2.0f);
  EXPECT_EQ(depth_range_min, -1.0f);  // the minimum statistic never runs
  EXPECT_EQ(average_depth, 7.5f);     // given on the command line
  read({make_view("a", constant(3000)), make_view("b", constant(1000)), make_view("c", constant(2000))});
  EXPECT_EQ(depth_range_max, 2.0f);
  read({make_view("z0", constant(0)), make_view("b", constant(1000)), make_view("z1", constant(0))});
  EXPECT_EQ(depth_range_max, 0.0f);
}

// Each mistake ends in a ViewFileError naming the file; the end-to-end tests run the common ones.
// A grey PGM as colour image fails in the conversion, after the reader.
TEST_F(SceneInput, MistakesNameTheViewFile) {
  Camera c;
  CMatrix<float> d;
  EXPECT_THROW(read_view(scratch_path("no_such_view.txt"), 0, c, d), ViewFileError);
  const std::string view = make_view("grey", constant(1000));
  const std::string png = scratch_path("grey_image.png"), grey = scratch_path("grey_image.pgm");
  CTensor<unsigned char>(4, 3, 1).writeToPGM(grey.c_str());
  std::string text = io_test::read_bytes(view);
  text.replace(text.find(png), png.size(), grey);
  io_test::write_bytes(view, text);
  expect_runtime_error([&] { read_view(view, 0, c, d); },
                       "view file \"" + view + "\": colour image \"" + grey +
                           "\": loadImage: expected an image with 3 or 4 planes and a non-zero size, got (4, 3, 1)");
}

TEST(InputChecks, AverageDepthAgainstTheInput) {
  CMatrix<float> m(3, 1);
  m.data[1] = 2.0f;
  m.data[2] = 4.0f;
  const InputDepths depths = measure_input_depths({m});
  EXPECT_EQ(std::vector<float>({float(depths.pixels), depths.min, depths.max, depths.median}),
            std::vector<float>({2, 2, 4, 4}));
  EXPECT_EQ(depth_avg_warning(1.0f, depths), "");
  EXPECT_EQ(depth_avg_warning(8.5f, depths),
            "warning: --depth-avg 8.5 lies far outside the depths of the input (2 to 4, median 4); every smoothing "
            "radius scales with it");
  EXPECT_NE(depth_avg_warning(1.0f, measure_input_depths({CMatrix<float>(2, 2)})), "");  // no depth at all
}

namespace {

// A 6 x 4 view with a turned pose, unequal focal lengths and an off-centre principal point, in
// the given file, with its image and depth map beside it.
std::string make_turned_view(const std::string& file) {
  const std::string image = scratch_path("image.png"), depth = scratch_path("depth.png");
  CTensor<unsigned char>(6, 4, 3).writeToPNG(image.c_str());
  write_depth_png(depth, 6, 4, std::vector<unsigned short>(24, 2500));
  write_view_file(file, {{501.25, 0, 2.125, 0, 499.5, 1.75, 0, 0, 1}, {0.36, 0.48, -0.8, -0.8, 0.6, 0, 0.48, 0.64, 0.6},
                         {0.1, -0.2, 3.3}, 6, 4, image, depth});
  return file;
}

void expect_same_camera(const Camera& a, const Camera& b) {
  for (int i = 0; i < 9; ++i) EXPECT_EQ(a.K[i], b.K[i]) << "K " << i;
  for (int i = 0; i < 9; ++i) EXPECT_EQ(a.R[i], b.R[i]) << "R " << i;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(a.t[i], b.t[i]) << "t " << i;
  EXPECT_EQ(a.width, b.width);
  EXPECT_EQ(a.height, b.height);
  EXPECT_EQ(a.image_filename, b.image_filename);
}

}  // namespace

// A refined view reads back as the camera it was written from, bit for bit, with the input's image
// and depth paths; a pose changed after reading is what the file then holds.
TEST(RefinedViews, WrittenViewsReadBackAsTheirCameras) {
  const std::string input = make_turned_view(scratch_path("view_07.txt"));
  Camera camera;
  CMatrix<float> depth;
  std::string depth_path;
  read_view(input, 0, camera, depth, &depth_path);
  camera.t[2] = 3.2999999f;  // as an alignment would move it
  camera.R[0] = 0.35999998f;

  const std::string views = scratch_path("out/views");
  ASSERT_EQ(prepare_refined_views(views, {input}), "");
  ASSERT_EQ(write_refined_views(views, {input}, {camera}, {depth_path}), "");
  Camera back;
  CMatrix<float> back_depth;
  std::string back_depth_path;
  read_view(views + "/view_07.txt", 0, back, back_depth, &back_depth_path);
  expect_same_camera(back, camera);
  EXPECT_EQ(back_depth_path, depth_path);
  EXPECT_EQ(std::vector<std::string>(1, "view_07.txt"),
            std::vector<std::string>(1, std::filesystem::directory_iterator(views)->path().filename().string()));
}

TEST(RefinedViews, NamesThatWouldCollideOrOverwriteTheInputAreRefused) {
  const std::string dir = scratch_dir();
  std::filesystem::create_directories(dir + "/a");
  std::filesystem::create_directories(dir + "/b");
  const std::string a = make_turned_view(dir + "/a/view.txt"), b = make_turned_view(dir + "/b/view.txt");
  EXPECT_EQ(prepare_refined_views(dir + "/out/views", {a, b}),
            "--improve-cameras: view files \"" + a + "\" and \"" + b + "\" have the same name \"view.txt\", so "
            "their refined views in \"" + dir + "/out/views\" would overwrite each other");
  // A rerun on the refined views of an earlier run, into the same output directory.
  EXPECT_EQ(prepare_refined_views(dir + "/a", {a}),
            "--improve-cameras: the refined view \"" + dir + "/a/view.txt\" would overwrite the input view file \"" +
                a + "\"; choose another output directory");
  std::filesystem::create_directories(dir + "/c/views/view.txt");
  EXPECT_EQ(prepare_refined_views(dir + "/c/views", {a}),
            "cannot write refined view \"" + dir + "/c/views/view.txt\": it is a directory");
}
