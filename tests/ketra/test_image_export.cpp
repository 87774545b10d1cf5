#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "image/CMatrix.h"
#include "image/CTensor.h"
#include "ketra/access.h"
#include "ketra/image_export.h"
#include "ketra/tools.h"
#include "src/io/save_depthmap_stack.h"
#include "tests/support/io_test_support.h"
#include "tests/support/ketra_test_support.h"

using io_test::expect_runtime_error;
using io_test::read_bytes;
using io_test::scratch_path;

namespace {

// Makes device arrays, which are freed and checked for leaks at the end.
using SaveImageToPNG = KetraTest;

}  // namespace

TEST_F(SaveImageToPNG, ColourBytesAreWrittenAndAlphaDropped) {
  std::vector<uchar4> pixels(6 * 3);
  for (unsigned int k = 0; k < pixels.size(); ++k)
    pixels[k] = make_uchar4(static_cast<unsigned char>(k), static_cast<unsigned char>(255 - k),
                            static_cast<unsigned char>(k * 13), static_cast<unsigned char>(k + 100));
  const ketra::Array<uchar4, 2> host = ketra::arrayFromHostMemory(pixels.data(), 6, 3);
  const ketra::Array<uchar4, 2> device = device_array<2>(make_uint4(6, 3, 1, 1), pixels);
  saveImageToPNG(host, scratch_path("host.png"));
  saveImageToPNG(device, scratch_path("device.png"));
  EXPECT_EQ(read_bytes(scratch_path("host.png")), read_bytes(scratch_path("device.png")));
  CTensor<float> t;
  t.readFromPNG(scratch_path("device.png").c_str(), false);
  ASSERT_EQ(t.zSize, 3);
  ASSERT_EQ(t.xSize, 6);
  ASSERT_EQ(t.ySize, 3);
  std::vector<float> planes;  // red, green and blue planes, x fastest
  for (int c = 0; c < 3; ++c)
    for (const uchar4& p : pixels) planes.push_back(c == 0 ? p.x : c == 1 ? p.y : p.z);
  EXPECT_EQ(std::vector<float>(t.data, t.data + t.size()), planes);
}

namespace {

std::string float_bytes(const std::vector<float>& v) {
  std::string s(v.size() * sizeof(float), '\0');
  std::memcpy(s.data(), v.data(), s.size());
  return s;
}

CMatrix<float> depth_map(int x, int y, float base) {
  CMatrix<float> m(x, y);
  for (int k = 0; k < x * y; ++k) m.data[k] = base + 0.25f * k;
  return m;
}

}  // namespace

// A larger map gives its first elements; a smaller one fills what it has and leaves zeros. Without
// its folder the stack is announced but nothing is written; no maps at all are refused.
TEST(SaveDepthmapStack, MapsBecomePlanesOfTheFirstMapsSize) {
  const std::vector<CMatrix<float>> maps = {depth_map(2, 2, 0.0f), depth_map(3, 2, 10.0f), depth_map(1, 3, 20.0f)};
  const std::string path = scratch_path("mixed.dat"), lost = scratch_path("no_such_directory") + "/stack.dat";
  testing::internal::CaptureStdout();
  saveDepthmapStack(maps, path);
  saveDepthmapStack({depth_map(2, 1, 0.0f)}, lost);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "(2, 2, 3, 1) [4.57764e-05 MB] written to " + path +
                                                        "\n(2, 1, 1, 1) [7.62939e-06 MB] written to " + lost + "\n");
  EXPECT_EQ(read_bytes(path), float_bytes({0.0f, 0.25f, 0.5f, 0.75f, 10.0f, 10.25f, 10.5f, 10.75f,  //
                                           20.0f, 20.25f, 20.5f, 0.0f}));
  EXPECT_EQ(read_bytes(path + ".ketrainfo"), "2 2 3 1 2 32 0 0 0\n");
  EXPECT_FALSE(std::filesystem::exists(lost) || std::filesystem::exists(lost + ".ketrainfo"));
  expect_runtime_error([&] { saveDepthmapStack({}, scratch_path("none.dat")); },
                       "ketra::mallocHostArray: all extents must be >= 1");
}
