#include "src/stereo/sgm_minima.h"

#include <cfloat>
#include <stdexcept>
#include <string>

#include "device/launch.h"
#include "ketra/access.h"
#include "ketra/check_error.h"
#include "ketra/tools.h"
#include "src/core/simd_lanes.h"
#include "src/render/point_batches.h"

namespace {

// The plain scan: the first smallest sum, and the smallest valley two labels or more from it.
void scan_minima(const float* s, int L, float& best, float& second) {
  int b = 0;
  for (int l = 1; l < L; ++l)
    if (s[l] < s[b]) b = l;
  second = FLT_MAX;
  for (int l = 0; l < L; ++l) {
    const bool valley = (l == 0 || s[l] <= s[l - 1]) && (l == L - 1 || s[l] <= s[l + 1]);
    if (valley && (l < b - 1 || l > b + 1) && s[l] < second) second = s[l];
  }
  best = s[b];
}

LANE_INLINE float smallest(lane_float v) {
  float m = v[0];
  for (int k = 1; k < kLanes; ++k) m = v[k] < m ? v[k] : m;
  return m;
}

// The same, eight labels at a time: a minimum of numbers does not depend on the order in which
// they are compared, so only the position of the first smallest needs a scan. Curves with a
// not-a-number, or too short for the lanes, take the plain scan.
LANE_KERNEL void path_minima(const float* s, int L, float& best, float& second) {
  if (L < kLanes + 2) return scan_minima(s, L, best, second);
  lane_float low = lane_load(s);
  lane_int nan = low != low;
  int l = kLanes;
  for (; l + kLanes <= L; l += kLanes) {
    const lane_float v = lane_load(s + l);
    low = v < low ? v : low;
    nan |= v != v;
  }
  float m = smallest(low);
  bool any_nan = false;
  for (int k = 0; k < kLanes; ++k) any_nan |= nan[k] != 0;
  for (; l < L; ++l) m = s[l] < m ? s[l] : m, any_nan |= s[l] != s[l];
  if (any_nan) return scan_minima(s, L, best, second);
  int b = 0;
  while (s[b] != m) ++b;
  // Valleys among labels 1 .. L - 2, eight at a time; the ends and the rest one by one.
  lane_float valleys = lane_splat(FLT_MAX);
  const lane_float none = lane_splat(FLT_MAX);
  for (l = 1; l + kLanes <= L - 1; l += kLanes) {
    const lane_float v = lane_load(s + l), before = lane_load(s + l - 1), after = lane_load(s + l + 1);
    lane_float at;
    for (int k = 0; k < kLanes; ++k) at[k] = static_cast<float>(l + k);
    const lane_float candidate = v <= before ? v : none;
    const lane_float valley = v <= after ? candidate : none;
    const lane_float away = at < static_cast<float>(b - 1) ? valley : (at > static_cast<float>(b + 1) ? valley : none);
    valleys = away < valleys ? away : valleys;
  }
  second = smallest(valleys);
  const auto one = [&](int k) {
    const bool valley = (k == 0 || s[k] <= s[k - 1]) && (k == L - 1 || s[k] <= s[k + 1]);
    if (valley && (k < b - 1 || k > b + 1) && s[k] < second) second = s[k];
  };
  one(0);
  for (; l < L; ++l) one(l);
  best = s[b];
}

}  // namespace

void sgm_path_minima(ketra::Array<float, 3>& minima, ketra::Array<float, 3> const& S) {
  if (minima.extents.x != S.extents.y || minima.extents.y != S.extents.z || minima.extents.z != 2)
    throw std::runtime_error("sgm_path_minima: minima " + ketra::internal::str_extents(minima.extents) +
                             " does not fit the path costs " + ketra::internal::str_extents(S.extents));
  const int L = static_cast<int>(S.extents.x), W = static_cast<int>(S.extents.y), H = static_cast<int>(S.extents.z);
  const auto shape = render_launch::pixel_shape(W, H);
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    const int x = idx.x(), y = idx.y();
    if (x >= W || y >= H) return;
    const float* s = &ketra::element(S, 0, x, y);
    float best, second;
    path_minima(s, L, best, second);
    ketra::element(minima, x, y, 0) = best;
    ketra::element(minima, x, y, 1) = second;
  });
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}
