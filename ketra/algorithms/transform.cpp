#include "ketra/algorithms/transform.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <stdexcept>

#include "ketra/algorithms/basic.h"
#include "ketra/algorithms/components.h"
#include "ketra/element_launch.h"
#include "ketra/tools.h"

namespace ketra {

namespace {

void throw_illegal_extents(char const* bound, uint3 n, uint4 old) {
  std::ostringstream s;
  s << "downsample: illegal new extents. extents must be " << bound << "\n"
    << " new extents are (" << n.x << ", " << n.y << ", " << n.z << ") " << "\n"
    << " old extents are (" << old.x << ", " << old.y << ", " << old.z << ", " << old.w << ") ";
  throw std::runtime_error(s.str());
}

// One tent-filter step along `axis` from in (old extent n) into out (new extent m).
template <class T>
void tent_step(Array<T, 4> out, Array<T, 4> in, int axis, device::stream_t stream) {
  using C = internal::Components<T>;
  const int n = static_cast<int>(internal::component(in.extents, axis));
  const int m = static_cast<int>(internal::component(out.extents, axis));
  const float s = 1.0f / (static_cast<float>(m) / static_cast<float>(n));
  internal::forEachElement4(
      out.extents,
      [=](int x, int y, int z, int w) {
        int at[3] = {x, y, z};
        const float c = static_cast<float>(at[axis]) * s;
        const int first = std::max(static_cast<int>(std::ceil(c - s)), 0);
        const int last = std::min(static_cast<int>(std::floor(c + s)), n - 1);
        float sum[C::n] = {};
        float weights = 0.0f;
        for (int j = first; j <= last; ++j) {
          at[axis] = j;
          const float weight = s - std::fabs(static_cast<float>(j) - c);
          T v = element(in, at[0], at[1], at[2], w);
          for (int k = 0; k < C::n; ++k) sum[k] += weight * static_cast<float>(C::at(v, k));
          weights += weight;
        }
        T r{};
        for (int k = 0; k < C::n; ++k)
          C::at(r, k) = static_cast<typename C::scalar>(std::nearbyint(std::fmin(sum[k] / weights, 255.0f)));
        element(out, x, y, z, w) = r;
      },
      stream);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

template <class T>
void flip(Array<T, 4> a, int axis) {
  internal::check_on_device(a.device);
  uint4 half = a.extents;
  internal::componentRef(half, axis) /= 2;
  if (internal::component(half, axis) == 0) return;
  const int n = static_cast<int>(internal::component(a.extents, axis));
  internal::forEachElement4(
      half,
      [=](int x, int y, int z, int w) {
        int at[4] = {x, y, z, w};
        T& first = element(a, at[0], at[1], at[2], at[3]);
        at[axis] = n - 1 - at[axis];
        T& second = element(a, at[0], at[1], at[2], at[3]);
        T t = first;
        first = second;
        second = t;
      },
      nullptr);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

}  // namespace

template <class T>
void downsample(Array<T, 4>& a, uint3 new_extents, device::stream_t stream) {
  if (a.device == -1) throw std::runtime_error("downsample: the array must be on the device");
  uint4 old = a.extents;
  if (old.x == new_extents.x && old.y == new_extents.y && old.z == new_extents.z) return;
  if (new_extents.x > old.x || new_extents.y > old.y || new_extents.z > old.z)
    throw_illegal_extents("<=", new_extents, old);
  if (new_extents.x < 1 || new_extents.y < 1 || new_extents.z < 1) throw_illegal_extents(">= 1", new_extents, old);
  unsigned int target[3] = {new_extents.x, new_extents.y, new_extents.z};
  for (int axis = 0; axis < 3; ++axis) {
    if (internal::component(a.extents, axis) == target[axis]) continue;
    uint4 e = a.extents;
    internal::componentRef(e, axis) = target[axis];
    Array<T, 4> next = mallocDeviceArray<T>(e, Pitched);
    tent_step(next, a, axis, stream);
    freeArray(a);
    a = next;
  }
}
template void downsample<uchar4>(Array<uchar4, 4>&, uint3, device::stream_t);
template void downsample<unsigned char>(Array<unsigned char, 4>&, uint3, device::stream_t);

template <class T> void flipX(Array<T, 4>& a) { flip(a, 0); }
template <class T> void flipY(Array<T, 4>& a) { flip(a, 1); }
template <class T> void flipZ(Array<T, 4>& a) { flip(a, 2); }

#define KETRA_FLIPS(T) \
  template void flipX<T>(Array<T, 4>&); template void flipY<T>(Array<T, 4>&); template void flipZ<T>(Array<T, 4>&);
KETRA_FLIPS(float)
KETRA_FLIPS(float2)
KETRA_FLIPS(float4)
KETRA_FLIPS(double)
KETRA_FLIPS(int)
KETRA_FLIPS(unsigned char)
KETRA_FLIPS(uchar4)
#undef KETRA_FLIPS

}  // namespace ketra
