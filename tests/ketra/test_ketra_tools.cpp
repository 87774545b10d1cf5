#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "device/launch.h"
#include "device/memory.h"
#include "device/texture.h"
#include "ketra/access.h"
#include "ketra/algorithms/basic.h"
#include "ketra/tools.h"
#include "tests/support/ketra_test_support.h"

using namespace ketra;

static_assert(std::is_trivially_copyable_v<Array<float, 3>>, "descriptors are passed by value into kernels");

namespace {

class KetraTools : public KetraTest {
 protected:
  // Host array of extents e filled with 0, 1, 2, ...
  Array<float, 4> counting_host(uint4 e) {
    Array<float, 4> a = owned(mallocHostArray<float>(e, Packed));
    std::iota(a.data, a.data + e.x * e.y * e.z * e.w, 0.0f);
    return a;
  }
};

std::vector<unsigned int> fields(uint4 u) { return {u.x, u.y, u.z, u.w}; }

}  // namespace

// Each misuse is refused with its message. The copy checks run in order: the layout of src, of
// dst, then the null tests, then the extents.
TEST_F(KetraTools, MisuseIsRefusedWithItsMessage) {
  Array<float, 4> h = counting_host(make_uint4(4, 3, 2, 1)), null_h = h, alias = h;
  null_h.data = nullptr;
  Array<float, 4> narrow_y = block(device_array<4>(h.extents), Range(), Range(0, 1));
  Array<float, 4> small = device_array<4>(make_uint4(4, 3, 1, 1));
  Array<float, 4> h_plane = block(h, Range(), Range(), Range(0, 0)), s_narrow = block(small, Range(0, 2));
  Array<float, 2> h2 = internal::decreaseArrayDimension<float, 4, 2>(h_plane);
  Array<float, 2> s2 = internal::decreaseArrayDimension<float, 4, 2>(s_narrow);
  Array<float, 4> with_data{nullptr, make_uint4(4, 20, 40, 80), make_uint4(5, 1, 2, 1), 0};
  const std::string host = "ketra::mallocHostArray: ", device = "ketra::mallocDeviceArray: ",
                    copy = "ketra::arrayCopy: ", mismatch = "arrayCopy: extents mismatch\n src extents are ";
  const std::string out_of_bounds =
      "block: block range is out of bounds.\n array extents are (4, 3, 2, 1), ranges are ";
  const std::vector<std::pair<std::function<void()>, std::string>> cases = {
      {[] { mallocHostArray<float>(make_uint4(2, 0, 1, 1), Packed); }, host + "all extents must be >= 1"},
      {[] { mallocHostArray<float>(make_uint4(2, 2, 1, 1), Pitched); }, host + "unsupported memory layout"},
      {[] { mallocDeviceArray<float>(make_uint4(1, 1, 1, 0), Pitched); }, device + "all extents must be >= 1"},
      {[] { mallocDeviceArray<float>(make_uint4(1, 1, 1, 1), static_cast<MemLayout>(5)); },
       device + "unsupported memory layout"},
      {[&] { internal::decreaseArrayDimension<float, 4, 2>(with_data); },
       "decreaseArrayDimension: Cannot decrease source array dimension.\n"
       " source dimension is 4  target dimension is 2.  source array extents are (5, 1, 2, 1)"},
      {[] { Range(1, -1); }, "Range(): the first element must be <= than the last element. first = 1,  last = -1\n"},
      {[&] { block(h, Range(0, 4)); }, out_of_bounds + "[0-4, 0-2, 0-1, 0-0]"},
      {[&] { block(h, Range(-1, 2)); }, out_of_bounds + "[-1-2, 0-2, 0-1, 0-0]"},
      {[&] { arrayCopy(narrow_y, block(h, Range(), Range(0, 1))); },
       copy + "memory layout of src array is incompatible"},
      {[&] { arrayCopy(narrow_y, null_h); }, copy + "memory layout of dst array is incompatible"},
      {[&] { arrayCopy(null_h, null_h); }, copy + "src is null"},
      {[&] { arrayCopy(null_h, h); }, copy + "dst is null"},
      {[&] { arrayCopy(alias, h); }, copy + "src and dst are identical"},
      {[&] { arrayCopy(small, h); }, mismatch + "(4, 3, 2, 1) dst extents are (4, 3, 1, 1)"},
      {[&] { arrayCopy(s2, h2); }, mismatch + "(4, 3) dst extents are (3, 3)"}};
  for (const auto& [misuse, text] : cases) EXPECT_EQ(message_of(misuse), text);

  // Host memory claimed to be device memory surfaces through the error check.
  Array<float, 4> fake = counting_host(h.extents);
  fake.device = 0;
  const std::string m = message_of([&] { arrayCopy(fake, h); });
  EXPECT_NE(m.find(": cuda error: invalid argument\n"), std::string::npos) << m;
}

TEST_F(KetraTools, CopiesBetweenEveryPairOfLayoutsAndPlaces) {
  const uint4 e = make_uint4(5, 3, 2, 2);
  Array<float, 4> source = counting_host(e);
  const std::vector<float> expected = download(source);
  auto make = [&](int kind) {
    return owned(kind == 0 ? mallocHostArray<float>(e, Packed)
                           : mallocDeviceArray<float>(e, kind == 1 ? Pitched : Packed));
  };
  for (int from = 0; from < 3; ++from)
    for (int to = 0; to < 3; ++to) {
      Array<float, 4> a = make(from), b = make(to);
      arrayCopy(a, source);
      arrayCopy(b, a);
      EXPECT_EQ(download(b), expected) << "from " << from << " to " << to;
    }
}

TEST_F(KetraTools, BlocksNarrowingXCopyAndNarrowingYWorkInKernels) {
  Array<float, 4> a = counting_host(make_uint4(4, 3, 2, 2));
  Array<float, 4> one = block(a, Range(3, 3), Range(0, -1), Range(1, 1), Range(-0, -1));
  EXPECT_EQ(fields(one.extents), (std::vector<unsigned int>{1, 3, 1, 2}));
  EXPECT_EQ(one.data[0], 3.0f + 12.0f);

  Array<float, 4> source = counting_host(make_uint4(6, 3, 2, 1));
  Array<float, 4> d = device_array<4>(source.extents);
  arrayCopy(d, source);
  Array<float, 4> view = block(d, Range(2, 4));
  EXPECT_EQ(view.pitch.z, 3 * view.pitch.y);
  EXPECT_EQ(download(view), (std::vector<float>{2, 3, 4, 8, 9, 10, 14, 15, 16, 20, 21, 22, 26, 27, 28, 32, 33, 34}));

  Array<float, 4> e = device_array<4>(make_uint4(3, 3, 2, 1));
  set(e, 0.0f);
  Array<float, 4> rows = block(e, Range(), Range(1, 1));
  EXPECT_EQ(message_of([&] { download(rows); }), "ketra::arrayCopy: memory layout of src array is incompatible");
  set(rows, 5.0f);
  EXPECT_EQ(download(e), (std::vector<float>{0, 0, 0, 5, 5, 5, 0, 0, 0, 0, 0, 0, 5, 5, 5, 0, 0, 0}));
}

TEST_F(KetraTools, LaunchErrorsSurfaceThroughTheCheck) {
  device::launch(device::Dim3(1), device::Dim3(2048), [](device::Index const&) {});
  EXPECT_EQ(message_of([] { _CHECK_CUDA_ERROR("render.cpp", 42); }),
            "render.cpp:42: cuda error: invalid configuration argument\n");
  EXPECT_EQ(message_of([] { _CHECK_CUDA_ERROR("render.cpp", 43); }), "");  // the error was consumed
}
