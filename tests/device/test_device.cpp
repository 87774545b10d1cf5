#include <gtest/gtest.h>

#include <array>
#include <tuple>
#include <vector>

#include "device/atomics.h"
#include "device/copy.h"
#include "device/launch.h"
#include "device/memory.h"
#include "device/texture.h"

using namespace device;

namespace {

// Each test starts and ends without pending errors or live allocations.
class Device : public ::testing::Test {
 protected:
  void SetUp() override {
    getLastError();
    reset();
  }
  void TearDown() override {
    EXPECT_EQ(getLastError(), Success);
    reset();
  }
};

}  // namespace

TEST_F(Device, PitchedRowsArePaddedAndRegistered) {
  PitchedPtr p, wide;
  ASSERT_EQ(allocatePitched(&p, makeExtent(12, 3, 2)), Success);
  EXPECT_EQ(p.pitch, 256u);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p.ptr) % kPitchAlignment, 0u);
  EXPECT_EQ(liveAllocationBytes(), 256u * 6);
  EXPECT_TRUE(isDeviceRange(p.ptr, 256 * 6));
  EXPECT_FALSE(isDeviceRange(p.ptr, 256 * 6 + 1));
  EXPECT_TRUE(isDeviceRange(static_cast<char*>(p.ptr) + 300, 10));
  ASSERT_EQ(allocatePitched(&wide, makeExtent(257, 1, 1)), Success);
  EXPECT_EQ(wide.pitch, 512u);
  EXPECT_EQ(release(p.ptr), Success);
  EXPECT_EQ(release(wide.ptr), Success);
  EXPECT_EQ(liveAllocationCount(), 0u);
}

TEST_F(Device, AllocationAndReleaseErrors) {
  EXPECT_EQ(release(nullptr), Success);
  void* p = reinterpret_cast<void*>(1);
  EXPECT_EQ(allocate(&p, static_cast<std::size_t>(1) << 62), ErrorMemoryAllocation);
  EXPECT_EQ(p, nullptr);
  EXPECT_STREQ(getErrorString(getLastError()), "out of memory");
  EXPECT_EQ(getLastError(), Success);  // reading clears it
  EXPECT_EQ(allocate(&p, 0), Success);
  EXPECT_EQ(p, nullptr);
}

TEST_F(Device, ResetFreesEveryLiveAllocation) {
  void* a = nullptr;
  PitchedPtr b;
  TextureArray* t = nullptr;
  ChannelFormatDesc f = channelDescOf<float>();
  ASSERT_EQ(allocate(&a, 100), Success);
  ASSERT_EQ(allocatePitched(&b, makeExtent(10, 10, 10)), Success);
  ASSERT_EQ(allocateArray3D(&t, &f, makeExtent(4, 4, 2), kArrayLayered), Success);
  EXPECT_EQ(liveAllocationCount(), 3u);
  EXPECT_EQ(reset(), Success);
  EXPECT_EQ(liveAllocationCount() + liveAllocationBytes(), 0u);
  EXPECT_FALSE(isDevicePointer(a) || isTextureArray(t));
}

TEST_F(Device, CopyArgumentChecks) {
  std::vector<char> host(1024);
  void* dev = nullptr;
  ASSERT_EQ(allocate(&dev, 64), Success);
  // Device side beyond its allocation.
  EXPECT_EQ(copy(dev, host.data(), 65, CopyHostToDevice), ErrorInvalidValue);
  EXPECT_EQ(getLastError(), ErrorInvalidValue);
  // Host memory named as device memory, and device memory named as host memory.
  EXPECT_EQ(copy(host.data(), dev, 16, CopyDeviceToDevice), ErrorInvalidValue);
  EXPECT_EQ(copy(host.data(), dev, 16, CopyHostToHost), ErrorInvalidValue);
  // Neither or both of pointer and array on one side.
  Copy3DParams p;
  p.dstPtr = makePitchedPtr(dev, 64, 64, 1);
  p.extent = makeExtent(1, 1, 1);
  EXPECT_EQ(copy3D(p), ErrorInvalidValue);
  getLastError();
}

TEST_F(Device, LaunchesVisitEveryElementOnce) {
  const int nx = 37, ny = 5, nz = 3;
  std::vector<int> grid_hits(nx * ny * nz, 0), element_hits(nx * ny * nz, 0);
  int *g = grid_hits.data(), *e = element_hits.data();
  ASSERT_EQ(launch(Dim3(blocksFor(nx, 8), blocksFor(ny, 2), blocksFor(nz, 2)), Dim3(8, 2, 2),
                   [=](Index const& i) {
                     if (i.x() < nx && i.y() < ny && i.z() < nz) atomicAdd(&g[(i.z() * ny + i.y()) * nx + i.x()], 1);
                   }),
            Success);
  ASSERT_EQ(launchElements(Dim3(nx, ny, nz), [=](int x, int y, int z) { atomicAdd(&e[(z * ny + y) * nx + x], 1); }),
            Success);
  EXPECT_EQ(grid_hits, std::vector<int>(nx * ny * nz, 1));
  EXPECT_EQ(element_hits, std::vector<int>(nx * ny * nz, 1));
}

TEST_F(Device, LaunchConfigurationLimits) {
  const std::vector<std::tuple<Dim3, Dim3, Error>> cases = {{Dim3(1), Dim3(1024), Success},
                                                            {Dim3(1), Dim3(1025), ErrorInvalidConfiguration},
                                                            {Dim3(1), Dim3(32, 33), ErrorInvalidConfiguration},
                                                            {Dim3(1), Dim3(1, 1, 65), ErrorInvalidConfiguration},
                                                            {Dim3(2147483647u), Dim3(128), Success},
                                                            {Dim3(2147483648u), Dim3(128), ErrorInvalidConfiguration},
                                                            {Dim3(1, 65535, 65535), Dim3(1), Success},
                                                            {Dim3(1, 65536), Dim3(1), ErrorInvalidConfiguration},
                                                            {Dim3(1, 1, 65536), Dim3(1), ErrorInvalidConfiguration},
                                                            {Dim3(0), Dim3(1), ErrorInvalidConfiguration}};
  for (const auto& [grid, block, expected] : cases)
    EXPECT_EQ(checkLaunch(grid, block, nullptr), expected) << grid.x << " " << grid.y << " " << block.x;

  // A refused launch runs nothing and leaves the error behind.
  int runs = 0;
  EXPECT_EQ(launch(Dim3(1, 70000), Dim3(1), [&](Index const&) { ++runs; }), ErrorInvalidConfiguration);
  EXPECT_EQ(peekAtLastError(), ErrorInvalidConfiguration);
  EXPECT_STREQ(getErrorString(getLastError()), "invalid configuration argument");
  EXPECT_EQ(launchElements(Dim3(1, 1, 65536), [&](int, int, int) { ++runs; }), ErrorInvalidConfiguration);
  EXPECT_EQ(launchElements(Dim3(0, 1, 1), [&](int, int, int) { ++runs; }), ErrorInvalidConfiguration);
  EXPECT_EQ(runs, 0);
  getLastError();
}

TEST_F(Device, AtomicsUnderContention) {
  float sum = 0.0f, lowest = 1e30f, highest = -1e30f;
  int isum = 0, imax = -1;
  unsigned long long counter = 0;
  unsigned int cas_counter = 0;
  const unsigned n = 1u << 20;
  ASSERT_EQ(launch(Dim3(n / 256), Dim3(256),
                   [&](Index const& i) {
                     int k = i.x();
                     atomicAdd(&sum, 1.0f);
                     atomicMin(&lowest, static_cast<float>(k % 1000) - 500.0f);
                     atomicMax(&highest, static_cast<float>(k % 777));
                     atomicAdd(&isum, 2);
                     atomicMax(&imax, k);
                     // Increment by compare-and-swap loops, 64 and 32 bits.
                     unsigned long long old = counter, seen;
                     while ((seen = atomicCAS(&counter, old, old + 1)) != old) old = seen;
                     unsigned int o32 = cas_counter, s32;
                     while ((s32 = atomicCAS(&cas_counter, o32, o32 + 1)) != o32) o32 = s32;
                   }),
            Success);
  // The float sum is exact: every partial sum is an integer below 2^24.
  EXPECT_EQ(std::vector<double>({sum, lowest, highest, 1.0 * isum, 1.0 * imax, 1.0 * counter, 1.0 * cas_counter}),
            std::vector<double>({1.0 * n, -500, 776, 2.0 * n, n - 1.0, 1.0 * n, 1.0 * n}));
}
