#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "device/memory.h"
#include "image/CMatrix.h"
#include "image/CTensor.h"
#include "ketra/access.h"
#include "ketra/algorithms/basic.h"
#include "ketra/algorithms/conversion.h"
#include "ketra/algorithms/transform.h"
#include "ketra/dump.h"
#include "ketra/filtering.h"
#include "ketra/image_export.h"
#include "ketra/tools.h"
#include "src/io/save_depthmap_stack.h"
#include "tests/support/io_test_support.h"
#include "tests/support/ketra_test_support.h"

using namespace ketra;
using io_test::expect_runtime_error;
using io_test::read_bytes;
using io_test::scratch_path;

namespace {

class KetraAlgorithms : public KetraTest {};
using SaveImageToPNG = KetraTest;

const Filter<float, 3> kCentralDifference = {{-0.5f, 0.0f, 0.5f}, 1};

CMatrix<float> depth_map(int x, int y, float base) {
  CMatrix<float> m(x, y);
  for (int k = 0; k < x * y; ++k) m.data[k] = base + 0.25f * k;
  return m;
}

}  // namespace

// The forms the program calls: set to a value, add and divide by another array.
TEST_F(KetraAlgorithms, ElementWiseFamily) {
  Array<float, 4> a = device_array<4>(make_uint4(3, 1, 1, 2), {1, 2, 3, 4, 5, 6});
  Array<float, 4> b = device_array<4>(make_uint4(3, 1, 1, 2), {1, 1, 1, 2, 2, 2});
  add(a, b);
  div(a, b);
  EXPECT_EQ(download(a), (std::vector<float>{2, 3, 4, 3, 3.5, 4}));
  Array<uchar4, 4> c = device_array<4, uchar4>(make_uint4(2, 2, 1, 1));
  set(c, make_uchar4(1, 2, 3, 4));
  EXPECT_EQ(download(c)[3].w, 4);
}

// Central differences with mirrored borders, as the program takes them: along x, and along y of
// each plane of two volumes of 1 x 3 x 3 without mixing the planes.
TEST_F(KetraAlgorithms, CentralDifferencesAlongXAndY) {
  Array<float, 4> in = device_array<4>(make_uint4(5, 1, 1, 1), {1, 4, 9, 16, 25});
  Array<float, 4> out = device_array<4>(in.extents);
  filterX(out, in, kCentralDifference, BorderMirror);
  EXPECT_EQ(download(out), (std::vector<float>{0, 4, 6, 8, 0}));
  std::vector<float> v, expected;
  for (int plane = 0; plane < 6; ++plane)
    for (int y = 0; y < 3; ++y) v.push_back(static_cast<float>(y + 10 * plane)), expected.push_back(y == 1);
  Array<float, 4> volumes = device_array<4>(make_uint4(1, 3, 3, 2), v), along_y = device_array<4>(volumes.extents);
  filterY(along_y, volumes, kCentralDifference, BorderMirror);
  EXPECT_EQ(download(along_y), expected);
}

TEST_F(KetraAlgorithms, DownsampleWeightsTheTapsAndFreesTheSource) {
  Array<uchar4, 4> a = mallocDeviceArray<uchar4>(make_uint4(4, 1, 1, 1));
  std::vector<uchar4> v = {make_uchar4(0, 255, 3, 1), make_uchar4(30, 255, 3, 1), make_uchar4(60, 255, 3, 1),
                           make_uchar4(90, 255, 3, 1)};
  arrayCopy(a, packed_host(v.data(), a.extents));
  downsample(a, make_uint3(2, 1, 1));
  EXPECT_EQ(a.extents.x, 2u);
  std::vector<uchar4> r = download(a);
  EXPECT_EQ(r[0].x, 10);  // taps 0..2 with weights 2, 1, 0
  EXPECT_EQ(r[1].x, 60);  // taps 0..3 with weights 0, 1, 2, 1
  EXPECT_EQ(r[0].y, 255);
  EXPECT_EQ(r[1].z, 3);
  EXPECT_EQ(device::liveAllocationCount(), 1u);  // the source is gone
  freeArray(a);
}

// Colour to float planes, scaled by 1 / 255 when asked.
TEST_F(KetraAlgorithms, Conversions) {
  Array<uchar4, 2> in =
      device_array<2, uchar4>(make_uint4(2, 1, 1, 1), {make_uchar4(0, 51, 255, 7), make_uchar4(1, 2, 3, 4)});
  Array<float, 3> out = device_array<3>(make_uint4(2, 1, 3, 1));
  convert(out, in, true);
  EXPECT_EQ(download(out), (std::vector<float>{0, 1.0f / 255, 0.2f, 2.0f / 255, 1, 3.0f / 255}));
  Array<float, 3> rgba = device_array<3>(make_uint4(2, 1, 4, 1));
  convert(rgba, in, false);
  EXPECT_EQ(download(rgba), (std::vector<float>{0, 1, 51, 2, 255, 3, 7, 4}));
}

// Packed like a host array's dump (which the depth-map stack test checks).
TEST_F(KetraAlgorithms, DumpOfPitchedDeviceArrayIsPacked) {
  std::vector<float> v(5 * 3 * 2);
  for (std::size_t k = 0; k < v.size(); ++k) v[k] = static_cast<float>(k) * 0.25f;
  testing::internal::CaptureStdout();
  writeArrayToFile(device_array<3>(make_uint4(5, 3, 2, 1), v), scratch_path("device.dat"));
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(read_bytes(scratch_path("device.dat")), std::string(reinterpret_cast<char*>(v.data()), 120));
  EXPECT_EQ(read_bytes(scratch_path("device.dat.ketrainfo")), "5 3 2 1 2 32 0 0 0\n");
}

// From a pitched device image (the previews' host panels are checked end to end).
TEST_F(SaveImageToPNG, ColourBytesAreWrittenAndAlphaDropped) {
  std::vector<uchar4> pixels(6 * 3);
  for (unsigned int k = 0; k < pixels.size(); ++k)
    pixels[k] = make_uchar4(static_cast<unsigned char>(k), static_cast<unsigned char>(255 - k),
                            static_cast<unsigned char>(k * 13), static_cast<unsigned char>(k + 100));
  saveImageToPNG(device_array<2>(make_uint4(6, 3, 1, 1), pixels), scratch_path("device.png"));
  CTensor<float> t;
  t.readFromPNG(scratch_path("device.png").c_str(), false);
  ASSERT_EQ(std::vector<int>({t.xSize, t.ySize, t.zSize}), std::vector<int>({6, 3, 3}));
  std::vector<float> planes;  // red, green and blue planes, x fastest
  for (int c = 0; c < 3; ++c)
    for (const uchar4& p : pixels) planes.push_back(c == 0 ? p.x : c == 1 ? p.y : p.z);
  EXPECT_EQ(std::vector<float>(t.data, t.data + t.size()), planes);
}

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
  const std::vector<float> stack = {0.0f, 0.25f, 0.5f, 0.75f, 10.0f, 10.25f, 10.5f, 10.75f, 20.0f, 20.25f, 20.5f, 0.0f};
  EXPECT_EQ(read_bytes(path), std::string(reinterpret_cast<const char*>(stack.data()), stack.size() * sizeof(float)));
  EXPECT_EQ(read_bytes(path + ".ketrainfo"), "2 2 3 1 2 32 0 0 0\n");
  EXPECT_FALSE(std::filesystem::exists(lost) || std::filesystem::exists(lost + ".ketrainfo"));
  expect_runtime_error([&] { saveDepthmapStack({}, scratch_path("none.dat")); },
                       "ketra::mallocHostArray: all extents must be >= 1");
}
