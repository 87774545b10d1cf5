#pragma once

#include <cmath>
#include <limits>
#include <utility>

#include "device/vector_types.h"

// An axis-aligned box of space, half open: lo <= p < hi on each axis. Bounds may be infinite, so
// that the outer tiles of a plan reach to infinity and every point lies in exactly one core.
struct SpaceBox {
  float lo[3] = {-std::numeric_limits<float>::infinity(), -std::numeric_limits<float>::infinity(),
                 -std::numeric_limits<float>::infinity()};
  float hi[3] = {std::numeric_limits<float>::infinity(), std::numeric_limits<float>::infinity(),
                 std::numeric_limits<float>::infinity()};

  bool contains(float3 p) const {
    return p.x >= lo[0] && p.x < hi[0] && p.y >= lo[1] && p.y < hi[1] && p.z >= lo[2] && p.z < hi[2];
  }
  // The box grown by `margin` on every side (infinite bounds stay).
  SpaceBox grown(float margin) const {
    SpaceBox b = *this;
    for (int a = 0; a < 3; ++a) {
      b.lo[a] -= margin;
      b.hi[a] += margin;
    }
    return b;
  }
  bool intersects(const SpaceBox& o) const {
    for (int a = 0; a < 3; ++a)
      if (!(lo[a] < o.hi[a] && o.lo[a] < hi[a])) return false;
    return true;
  }
};

// The smallest box holding both (for bounding boxes of points; starts empty).
inline SpaceBox empty_box() {
  SpaceBox b;
  for (int a = 0; a < 3; ++a) std::swap(b.lo[a], b.hi[a]);
  return b;
}
inline void include_point(SpaceBox& b, float3 p) {
  const float v[3] = {p.x, p.y, p.z};
  for (int a = 0; a < 3; ++a) {
    b.lo[a] = std::fmin(b.lo[a], v[a]);
    b.hi[a] = std::fmax(b.hi[a], std::nextafter(v[a], std::numeric_limits<float>::infinity()));
  }
}
