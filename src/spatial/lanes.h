#pragma once

// Eight float lanes for the neighbour kernels. A kernel runs the particles of one cell side by
// side, one per lane, against the same neighbour at a time: each lane evaluates exactly the
// expressions of the one-particle form, in the same order, so the results keep every bit. The
// types are the compiler's generic vectors; a kernel marked LANE_KERNEL is built twice, for AVX2
// (one 256-bit register per value) and for the x86-64 baseline (two SSE registers), and the
// processor picks at run time. No FMA is enabled: contracted products would round differently.

#include <cstring>

#define LANE_KERNEL __attribute__((target_clones("avx2", "default")))

// The lane types are returned by value only from inlined functions.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpsabi"

constexpr int kLanes = 8;

typedef float lane_float __attribute__((vector_size(4 * kLanes)));
typedef int lane_int __attribute__((vector_size(4 * kLanes)));  // masks: all bits set for true

#define LANE_INLINE inline __attribute__((always_inline))

LANE_INLINE lane_float lane_load(const float* p) {
  lane_float v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

LANE_INLINE lane_int lane_load(const int* p) {
  lane_int v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

LANE_INLINE void lane_store(float* p, const lane_float& v) { std::memcpy(p, &v, sizeof v); }

LANE_INLINE lane_float lane_splat(float v) { return lane_float{} + v; }

// Correctly rounded like the scalar square root; the loop becomes one vector instruction when the
// build does not keep errno for math functions.
LANE_INLINE lane_float lane_sqrt(const lane_float& v) {
  lane_float r;
  for (int l = 0; l < kLanes; ++l) r[l] = __builtin_sqrtf(v[l]);
  return r;
}

LANE_INLINE lane_float lane_fabs(const lane_float& v) {
  lane_int bits;
  std::memcpy(&bits, &v, sizeof v);
  bits &= 0x7fffffff;
  lane_float r;
  std::memcpy(&r, &bits, sizeof r);
  return r;
}

#pragma GCC diagnostic pop
