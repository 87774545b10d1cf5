#pragma once

// Float lanes for kernels that compute several particles, pixels or labels side by side: each lane
// evaluates exactly the expressions of the one-element form, in the same order, so the results
// keep every bit. No FMA is enabled: contracted products would round differently.
//
// The types are the compiler's generic vectors. A kernel reaches the vector units only by function
// multiversioning: LANE_KERNEL builds it for AVX2 (one 256-bit register per lane_float) and for
// the x86-64 baseline (two SSE registers), WIDE_LANE_KERNEL also for AVX-512, and the processor
// picks a clone at run time.
//
// One ABI rule: lane values go by value only to and from helpers that are always inlined
// (LANE_INLINE); a function that is really called, kernels included, takes them through memory,
// since the clones' vector ABIs differ. So the build can turn GCC's warning about that ABI off
// (-Wno-psabi), which it would give for every helper.

#include <cstring>

#define LANE_KERNEL __attribute__((target_clones("avx2", "default")))
#define WIDE_LANE_KERNEL __attribute__((target_clones("avx512f", "avx2", "default")))
#define LANE_INLINE inline __attribute__((always_inline))

constexpr int kLanes = 8;       // one AVX2 register of floats
constexpr int kWideLanes = 16;  // one AVX-512 register

typedef float lane_float __attribute__((vector_size(4 * kLanes)));
typedef int lane_int __attribute__((vector_size(4 * kLanes)));  // masks: all bits set for true
typedef float wide_lane_float __attribute__((vector_size(4 * kWideLanes)));

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

LANE_INLINE wide_lane_float wide_lane_load(const float* p) {
  wide_lane_float v;
  std::memcpy(&v, p, sizeof v);
  return v;
}

LANE_INLINE void lane_store(float* p, const lane_float& v) { std::memcpy(p, &v, sizeof v); }

// Every lane v, bit for bit (-0 and NaN included).
LANE_INLINE lane_float lane_splat(float v) {
  lane_float r;
  for (int l = 0; l < kLanes; ++l) r[l] = v;
  return r;
}

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

