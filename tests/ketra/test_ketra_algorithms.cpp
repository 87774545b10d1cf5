#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "device/memory.h"
#include "ketra/algorithms/basic.h"
#include "ketra/algorithms/conversion.h"
#include "ketra/algorithms/transform.h"
#include "ketra/dump.h"
#include "ketra/filtering.h"
#include "ketra/tools.h"
#include "tests/support/io_test_support.h"
#include "tests/support/ketra_test_support.h"

using namespace ketra;
using io_test::read_bytes;
using io_test::scratch_path;

namespace {

class KetraAlgorithms : public KetraTest {};

const Filter<float, 3> kCentralDifference = {{-0.5f, 0.0f, 0.5f}, 1};

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

TEST_F(KetraAlgorithms, DumpOfPitchedDeviceArrayEqualsPackedHostDump) {
  std::vector<float> v(5 * 3 * 2);
  for (std::size_t k = 0; k < v.size(); ++k) v[k] = static_cast<float>(k) * 0.25f;
  testing::internal::CaptureStdout();
  writeArrayToFile(arrayFromHostMemory(v.data(), 5, 3, 2), scratch_path("host.dat"));
  writeArrayToFile(device_array<3>(make_uint4(5, 3, 2, 1), v), scratch_path("device.dat"));
  testing::internal::GetCapturedStdout();
  const std::string bytes = read_bytes(scratch_path("host.dat"));
  EXPECT_EQ(bytes, std::string(reinterpret_cast<char*>(v.data()), 120));
  EXPECT_EQ(read_bytes(scratch_path("device.dat")), bytes);
  EXPECT_EQ(read_bytes(scratch_path("device.dat.ketrainfo")), "5 3 2 1 2 32 0 0 0\n");
}
