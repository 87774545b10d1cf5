#include <gtest/gtest.h>

#include <numeric>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "device/launch.h"
#include "device/memory.h"
#include "device/texture.h"
#include "ketra/access.h"
#include "ketra/algorithms/basic.h"
#include "ketra/tools.h"
#include "ketra_test_support.h"

using namespace ketra;

namespace {

class KetraTools : public DeviceTest {};

// Host array of extents e filled with 0, 1, 2, ...
Array<float, 4> counting_host(uint4 e) {
  Array<float, 4> a = mallocHostArray<float>(e, Packed);
  std::iota(a.data, a.data + e.x * e.y * e.z * e.w, 0.0f);
  return a;
}

// The first D dimensions of a 4-D descriptor.
template <int D, class T>
Array<T, D> cut(Array<T, 4> a) {
  return internal::decreaseArrayDimension<T, 4, D>(a);
}

std::vector<float> contents(Array<float, 4> const& host) {
  uint4 e = host.extents;
  return std::vector<float>(host.data, host.data + e.x * e.y * e.z * e.w);
}

}  // namespace

TEST_F(KetraTools, DescriptorIsPlain) {
  EXPECT_TRUE((std::is_trivially_copyable_v<Array<float, 3>>));
  EXPECT_TRUE((std::is_trivially_copyable_v<Array<uchar4, 2>>));
}

TEST_F(KetraTools, AllocationChecks) {
  EXPECT_EQ(message_of([] { mallocHostArray<float>(make_uint4(2, 0, 1, 1), Packed); }),
            "ketra::mallocHostArray: all extents must be >= 1");
  EXPECT_EQ(message_of([] { mallocHostArray<float>(make_uint4(2, 2, 1, 1), Pitched); }),
            "ketra::mallocHostArray: unsupported memory layout");
  EXPECT_EQ(message_of([] { mallocDeviceArray<float>(make_uint4(1, 1, 1, 0), Pitched); }),
            "ketra::mallocDeviceArray: all extents must be >= 1");
  EXPECT_EQ(message_of([] { mallocDeviceArray<float>(make_uint4(1, 1, 1, 1), static_cast<MemLayout>(5)); }),
            "ketra::mallocDeviceArray: unsupported memory layout");
  EXPECT_EQ(device::liveAllocationCount(), 0u);
}

TEST_F(KetraTools, HostArraysArePacked) {
  Array<double, 4> a = mallocHostArray<double>(make_uint4(3, 4, 5, 2), static_cast<MemLayout>(7));
  EXPECT_EQ(a.device, -1);
  EXPECT_EQ(a.pitch.x, 8u);
  EXPECT_EQ(a.pitch.y, 24u);
  EXPECT_EQ(a.pitch.z, 96u);
  EXPECT_EQ(a.pitch.w, 480u);
  freeArray(a);
}

TEST_F(KetraTools, PitchedDeviceArrayOfThreeRows) {
  Array<float, 4> a4 = mallocDeviceArray<float>(make_uint4(5, 3, 1, 1), Pitched);
  Array<float, 2> a = internal::decreaseArrayDimension<float, 4, 2>(a4);
  EXPECT_EQ(a.device, 0);
  EXPECT_EQ(a.pitch.x, 4u);
  EXPECT_EQ(a.pitch.y, 256u);
  EXPECT_GT(a.pitch.y, 5 * sizeof(float));
  EXPECT_EQ(a4.pitch.z, 3 * a4.pitch.y);
  EXPECT_EQ(a4.pitch.w, 3 * a4.pitch.y);
  Array<float, 4> packed = mallocDeviceArray<float>(make_uint4(5, 3, 2, 1), Packed);
  EXPECT_EQ(packed.pitch.y, 20u);
  EXPECT_EQ(packed.pitch.z, 60u);
  freeArray(a4);
  freeArray(packed);
}

TEST_F(KetraTools, DimensionChanges) {
  Array<float, 4> a{nullptr, make_uint4(4, 20, 40, 80), make_uint4(5, 1, 2, 1), 0};
  EXPECT_EQ(message_of([&] { internal::decreaseArrayDimension<float, 4, 2>(a); }),
            "decreaseArrayDimension: Cannot decrease source array dimension.\n"
            " source dimension is 4  target dimension is 2.  source array extents are (5, 1, 2, 1)");
  Array<float, 3> b = internal::decreaseArrayDimension<float, 4, 3>(a);
  EXPECT_EQ(b.extents.z, 2u);
  EXPECT_EQ(b.pitch.z, 40u);
  EXPECT_EQ(b.device, 0);

  Array<float, 4> back = internal::increaseArrayDimension<float, 3, 4>(b);
  EXPECT_EQ(back.pitch.w, 80u);
  EXPECT_EQ(back.extents.w, 1u);

  Array<int, 1> line{nullptr, make_uint1(4), make_uint1(7), -1};
  Array<int, 4> l4 = internal::increaseArrayDimension<int, 1, 4>(line);
  EXPECT_EQ(l4.pitch.y, 28u);
  EXPECT_EQ(l4.pitch.w, 28u);
  Array<int, 1> again = internal::decreaseArrayDimension<int, 4, 1>(l4);
  EXPECT_EQ(again.pitch.x, line.pitch.x);
  EXPECT_EQ(again.extents.x, line.extents.x);

  Array<int, 2> plane{nullptr, make_uint2(4, 32), make_uint2(7, 3), 0};
  Array<int, 4> p4 = internal::increaseArrayDimension<int, 2, 4>(plane);
  EXPECT_EQ(p4.pitch.z, 96u);
  EXPECT_EQ(p4.pitch.w, 96u);
}

TEST_F(KetraTools, ExtentsAsText) {
  EXPECT_EQ(internal::str_extents(make_uint1(7)), "(7)");
  EXPECT_EQ(internal::str_extents(make_uint3(640, 480, 3)), "(640, 480, 3)");
  EXPECT_EQ(internal::str_extents(make_uint4(1, 2, 3, 4)), "(1, 2, 3, 4)");
  EXPECT_EQ(internal::str_cudaChannelFormatDesc(device::channelDescOf<float>()),
            "(f=cudaChannelFormatKindFloat, x=32, y=0, z=0, w=0)");
  EXPECT_EQ(internal::str_cudaChannelFormatDesc(device::channelDescOf<uchar4>()),
            "(f=cudaChannelFormatKindUnsigned, x=8, y=8, z=8, w=8)");
}

TEST_F(KetraTools, HostMemoryWrappers) {
  std::vector<int> v(24);
  Array<int, 2> a = arrayFromHostMemory(v.data(), 6, 4);
  EXPECT_EQ(a.pitch.y, 24u);
  EXPECT_EQ(a.device, -1);
  Array<int, 3> b = arrayFromHostMemory(v.data(), make_uint3(2, 3, 4));
  EXPECT_EQ(b.pitch.z, 24u);
  element(b, 1, 2, 3) = 9;
  EXPECT_EQ(v[23], 9);
}

TEST_F(KetraTools, Accessors) {
  std::vector<int> v = {10, 11, 12, 13};
  Array<int, 1> a = cut<1>(Array<int, 4>{v.data(), make_uint4(4, 16, 16, 16), make_uint4(4, 1, 1, 1), -1});
  EXPECT_EQ(ArrayAccessMirror::read(a, -1), 11);
  EXPECT_EQ(ArrayAccessMirror::read(a, 4), 12);
  EXPECT_EQ(ArrayAccessMirror::read(a, -3), 13);
  EXPECT_EQ(ArrayAccessClamp::read(a, -5), 10);
  EXPECT_EQ(ArrayAccessClamp::read(a, 9), 13);
  EXPECT_EQ(ArrayAccessZero::read(a, -1), 0);
  EXPECT_EQ(ArrayAccessZero::read(a, 4), 0);
  EXPECT_EQ(ArrayAccessZero::read(a, 0, 1), 0);  // y beyond its extent of 1
  EXPECT_EQ(ArrayAccessZero::read(a, 3), 13);
}

TEST_F(KetraTools, Ranges) {
  EXPECT_EQ(message_of([] { Range(1, -1); }),
            "Range(): the first element must be <= than the last element. first = 1,  last = -1\n");
  EXPECT_EQ(message_of([] { Range(3, 2); }),
            "Range(): the first element must be <= than the last element. first = 3,  last = 2\n");
  EXPECT_EQ(Range(-2, -1).first, -2);
  Array<float, 4> a = counting_host(make_uint4(4, 3, 2, 2));
  Array<float, 4> one = block(a, Range(3, 3), Range(0, -1), Range(1, 1), Range(-0, -1));
  EXPECT_EQ(one.extents.x, 1u);
  EXPECT_EQ(one.extents.y, 3u);
  EXPECT_EQ(one.extents.w, 2u);
  EXPECT_EQ(one.data[0], 3.0f + 12.0f);
  EXPECT_EQ(message_of([&] { block(a, Range(0, 4)); }),
            "block: block range is out of bounds.\n array extents are (4, 3, 2, 2), ranges are [0-4, 0-2, 0-1, 0-1]");
  EXPECT_EQ(message_of([&] { block(a, Range(-1, 2)); }),
            "block: block range is out of bounds.\n array extents are (4, 3, 2, 2), ranges are [-1-2, 0-2, 0-1, 0-1]");
  EXPECT_EQ(message_of([&] { subvolume(a, 2); }),
            "block: block range is out of bounds.\n array extents are (4, 3, 2, 2), ranges are [0-3, 0-2, 0-1, 2-2]");
  Array<float, 3> s = subvolume(a, 1);
  EXPECT_EQ(s.data, a.data + 24);
  EXPECT_EQ(s.extents.z, 2u);
  freeArray(a);
}

TEST_F(KetraTools, CopyChecksInOrder) {
  Array<float, 4> h = counting_host(make_uint4(4, 3, 2, 1));
  Array<float, 4> d = mallocDeviceArray<float>(make_uint4(4, 3, 2, 1));
  Array<float, 4> narrow_y = block(d, Range(), Range(0, 1));
  Array<float, 4> null_h = h;
  null_h.data = nullptr;
  // Layout of src is tested before dst, both before the null tests.
  EXPECT_EQ(message_of([&] { arrayCopy(narrow_y, block(h, Range(), Range(0, 1))); }),
            "ketra::arrayCopy: memory layout of src array is incompatible");
  EXPECT_EQ(message_of([&] { arrayCopy(narrow_y, null_h); }),
            "ketra::arrayCopy: memory layout of dst array is incompatible");
  EXPECT_EQ(message_of([&] { arrayCopy(null_h, null_h); }), "ketra::arrayCopy: src is null");
  EXPECT_EQ(message_of([&] { arrayCopy(null_h, h); }), "ketra::arrayCopy: dst is null");
  Array<float, 4> alias = h;
  EXPECT_EQ(message_of([&] { arrayCopy(alias, h); }), "ketra::arrayCopy: src and dst are identical");
  Array<float, 4> small = mallocDeviceArray<float>(make_uint4(4, 3, 1, 1));
  EXPECT_EQ(message_of([&] { arrayCopy(small, h); }),
            "arrayCopy: extents mismatch\n src extents are (4, 3, 2, 1) dst extents are (4, 3, 1, 1)");
  Array<float, 2> h2 = cut<2>(block(h, Range(), Range(), Range(0, 0)));
  Array<float, 2> s2 = cut<2>(block(small, Range(0, 2)));
  EXPECT_EQ(message_of([&] { arrayCopy(s2, h2); }),
            "arrayCopy: extents mismatch\n src extents are (4, 3) dst extents are (3, 3)");
  freeArray(h);
  freeArray(d);
  freeArray(small);
}

TEST_F(KetraTools, CopiesBetweenEveryPairOfLayoutsAndPlaces) {
  const uint4 e = make_uint4(5, 3, 2, 2);
  Array<float, 4> source = counting_host(e);
  const std::vector<float> expected = contents(source);
  auto make = [&](int kind) {
    if (kind == 0) return mallocHostArray<float>(e, Packed);
    return mallocDeviceArray<float>(e, kind == 1 ? Pitched : Packed);
  };
  for (int from = 0; from < 3; ++from)
    for (int to = 0; to < 3; ++to) {
      Array<float, 4> a = make(from), b = make(to), back = mallocHostArray<float>(e, Packed);
      arrayCopy(a, source);
      arrayCopy(b, a);
      arrayCopy(back, b);
      EXPECT_EQ(contents(back), expected) << "from " << from << " to " << to;
      freeArray(a);
      freeArray(b);
      freeArray(back);
    }
  freeArray(source);
}

TEST_F(KetraTools, BlockNarrowingXCopiesWithParentPitch) {
  Array<float, 4> source = counting_host(make_uint4(6, 3, 2, 1));
  Array<float, 4> d = mallocDeviceArray<float>(source.extents);
  arrayCopy(d, source);
  Array<float, 4> view = block(d, Range(2, 4));
  EXPECT_EQ(view.pitch.z, 3 * view.pitch.y);
  Array<float, 4> out = mallocHostArray<float>(view.extents, Packed);
  arrayCopy(out, view);
  EXPECT_EQ(contents(out), (std::vector<float>{2, 3, 4, 8, 9, 10, 14, 15, 16, 20, 21, 22, 26, 27, 28, 32, 33, 34}));
  freeArray(source);
  freeArray(d);
  freeArray(out);
}

TEST_F(KetraTools, BlockNarrowingYWorksInKernels) {
  Array<float, 4> d = mallocDeviceArray<float>(make_uint4(3, 3, 2, 1));
  set(d, 0.0f);
  Array<float, 4> rows = block(d, Range(), Range(1, 1));
  Array<float, 4> copy = mallocHostArray<float>(rows.extents, Packed);
  EXPECT_EQ(message_of([&] { arrayCopy(copy, rows); }), "ketra::arrayCopy: memory layout of src array is incompatible");
  set(rows, 5.0f);
  Array<float, 4> all = mallocHostArray<float>(d.extents, Packed);
  arrayCopy(all, d);
  EXPECT_EQ(contents(all), (std::vector<float>{0, 0, 0, 5, 5, 5, 0, 0, 0, 0, 0, 0, 5, 5, 5, 0, 0, 0}));
  freeArray(d);
  freeArray(copy);
  freeArray(all);
}

TEST_F(KetraTools, WrongDeviceFieldSurfacesThroughTheErrorCheck) {
  Array<float, 4> h = counting_host(make_uint4(2, 2, 1, 1));
  Array<float, 4> fake = mallocHostArray<float>(h.extents, Packed);
  fake.device = 0;  // host memory claimed to be device memory
  std::string m = message_of([&] { arrayCopy(fake, h); });
  EXPECT_NE(m.find(": cuda error: invalid argument\n"), std::string::npos) << m;
  fake.device = -1;
  freeArray(h);
  freeArray(fake);
}

TEST_F(KetraTools, VectorCopy) {
  Array<float, 4> h = counting_host(make_uint4(5, 1, 1, 1));
  Array<float, 4> d4 = mallocDeviceArray<float>(h.extents);
  arrayCopy(d4, h);
  Array<float, 1> d = internal::decreaseArrayDimension<float, 4, 1>(d4);
  std::vector<float> v(5);
  vectorCopy(v, d);
  EXPECT_EQ(v, (std::vector<float>{0, 1, 2, 3, 4}));
  std::vector<float> wrong(4);
  EXPECT_EQ(message_of([&] { vectorCopy(wrong, d); }),
            "arrayCopy: extents mismatch\n src extents are (5) dst extents are (4)");
  freeArray(h);
  freeArray(d4);
}

TEST_F(KetraTools, CopyIntoTextureArray) {
  Array<float, 4> h = counting_host(make_uint4(3, 2, 2, 1));
  Array<float, 4> d4 = mallocDeviceArray<float>(h.extents);
  arrayCopy(d4, h);
  Array<float, 3> d = internal::decreaseArrayDimension<float, 4, 3>(d4);
  device::TextureArray* layered = nullptr;
  device::ChannelFormatDesc f = device::channelDescOf<float>();
  device::allocateArray3D(&layered, &f, device::makeExtent(3, 2, 2), device::kArrayLayered);
  arrayCopy(layered, d);
  device::Texture<float> tex;
  device::bindTextureToArray(tex, layered);
  EXPECT_EQ(device::tex2DLayered(tex, 2.5f, 1.5f, 1), 11.0f);

  device::TextureArray* flat = nullptr;
  device::allocateArray(&flat, &f, 3, 2);
  EXPECT_EQ(message_of([&] { arrayCopy(flat, d); }),
            "arrayCopy: extents mismatch\n src extents are (3, 2, 2) dst extents are (3, 2, 1)\n");
  device::TextureArray* bytes = nullptr;
  device::ChannelFormatDesc b = device::channelDescOf<uchar4>();
  device::allocateArray3D(&bytes, &b, device::makeExtent(3, 2, 2), device::kArrayLayered);
  EXPECT_EQ(message_of([&] { arrayCopy(bytes, d); }),
            "arrayCopy: cudaChannelFormatDesc mismatch\n"
            "src channel format desc is (f=cudaChannelFormatKindFloat, x=32, y=0, z=0, w=0)"
            "dst channel format desc is (f=cudaChannelFormatKindUnsigned, x=8, y=8, z=8, w=8)");
  device::TextureArray* gone = flat;
  device::releaseArray(flat);
  EXPECT_EQ(message_of([&] { arrayCopy(gone, d); }), "ketra::arrayCopy: cannot get array info for cudaArray dst");
  device::getLastError();
  EXPECT_EQ(message_of([&] { arrayCopy(static_cast<device::TextureArray*>(nullptr), d); }),
            "ketra::arrayCopy: dst is null");
  device::releaseArray(layered);
  device::releaseArray(bytes);
  freeArray(h);
  freeArray(d4);
}

TEST_F(KetraTools, LaunchErrorsSurfaceThroughTheCheck) {
  device::launch(device::Dim3(1), device::Dim3(2048), [](device::Index const&) {});
  EXPECT_EQ(message_of([] { _CHECK_CUDA_ERROR("render.cpp", 42); }),
            "render.cpp:42: cuda error: invalid configuration argument\n");
  EXPECT_EQ(message_of([] { _CHECK_CUDA_ERROR("render.cpp", 43); }), "");  // the error was consumed
}

TEST_F(KetraTools, FreeArrayReleasesDeviceMemory) {
  Array<int, 4> d = mallocDeviceArray<int>(make_uint4(2, 2, 2, 2));
  EXPECT_EQ(device::liveAllocationCount(), 1u);
  freeArray(d);
  EXPECT_EQ(device::liveAllocationCount(), 0u);
}
