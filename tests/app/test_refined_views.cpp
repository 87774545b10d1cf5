#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "image/CTensor.h"
#include "src/app/refined_views.h"
#include "src/app/scene_input.h"
#include "tests/support/io_test_support.h"

using io_test::scratch_dir;
using io_test::scratch_path;

namespace {

// A 6 x 4 view with a turned pose, unequal focal lengths and an off-centre principal point, in
// the given file, with its image and depth map beside it.
std::string make_view(const std::string& file) {
  const std::string image = scratch_path("image.png"), depth = scratch_path("depth.png");
  CTensor<unsigned char>(6, 4, 3).writeToPNG(image.c_str());
  io_test::write_grey16_png(depth, 6, 4, std::vector<unsigned short>(24, 2500));
  std::ofstream(file) << "501.25 0 2.125\n0 499.5 1.75\n0 0 1\n"
                      << "0.36 0.48 -0.8\n-0.8 0.6 0\n0.48 0.64 0.6\n"
                      << "0.1 -0.2 3.3\n6 4\n"
                      << image << "\n" << depth << "\n";
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
  const std::string input = make_view(scratch_path("view_07.txt"));
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
  const std::string a = make_view(dir + "/a/view.txt"), b = make_view(dir + "/b/view.txt");
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
