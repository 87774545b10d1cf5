#pragma once

#include <cmath>

#include "src/core/simd_lanes.h"
#include "src/spatial/neighbour_batch.h"

// Poly6 smoothing kernel 315 / (64 pi h^9) * (h^2 - r^2)^3 for |r| <= h, 0 beyond, evaluated in
// this exact float order so that every pass gets the same bits.
inline float W(float r, float h) {
  if (std::fabs(r) > h) return 0.0f;
  float s = h * h;
  float q = s * s;
  float d = s - r * r;
  return 315.0f / (h * 201.06194f * (q * q)) * (d * d * d);
}

// Whether the kernel of radius h has weights a filter can work with: W(0, h) neither 0, subnormal,
// infinite nor NaN, and its reciprocal (a density's) finite.
inline bool kernel_computable(float h) {
  const float w = W(0.0f, h);
  return std::isnormal(w) && std::isfinite(1.0f / w);
}

// The same kernel with the factor that depends on h alone computed once per pass. Gives the bits of
// W(r, h) for every r. `outside(r2)` tells from the squared distance, without a square root,
// whether sqrtf(r2) > h: `r2_limit` is the largest float whose square root is not above h.
struct SphKernel {
  float h = 0.0f;
  float s = 0.0f;
  float factor = 0.0f;
  float r2_limit = 0.0f;

  explicit SphKernel(float radius) : h(radius) {
    s = h * h;
    float q = s * s;
    factor = 315.0f / (h * 201.06194f * (q * q));
    r2_limit = squared_reach(h);
  }

  // True only if sqrtf(r2) > h for certain; a non-finite r2 is never reported outside.
  bool outside(float r2) const { return r2 > r2_limit && r2 <= 3.4028235e38f; }
  LANE_INLINE lane_int outside(const lane_float& r2) const { return (r2 > r2_limit) & (r2 <= 3.4028235e38f); }

  float operator()(float r) const {
    if (std::fabs(r) > h) return 0.0f;
    float d = s - r * r;
    return factor * (d * d * d);
  }
  LANE_INLINE lane_float operator()(const lane_float& r) const {
    const lane_float d = s - r * r;
    return lane_fabs(r) > h ? lane_float{} : factor * (d * d * d);
  }
};

