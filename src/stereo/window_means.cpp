#include "src/stereo/window_means.h"

#include <cstring>

#include "src/core/simd_lanes.h"

namespace depthmap_estimation_kernels {

namespace {
constexpr int kRow = 32;  // the widest block row
}

// Plain loops over the row's pixels, which the compiler turns into vector code per clone.
LANE_KERNEL void window_row_sums(ushort4* out, const uchar4* row, int x0, int n, int W, int R) {
  unsigned int s[4][kRow] = {}, zero[kRow] = {};
  // The pixels whose window lies inside the row; the others are 0.
  const int first = x0 < R ? R - x0 : 0, last = x0 + n > W - R ? W - R - x0 : n;
  for (int i = -R; i <= R; ++i)
    for (int k = first; k < last; ++k) {
      const uchar4 p = row[x0 + k + i];
      s[0][k] += p.x, s[1][k] += p.y, s[2][k] += p.z, s[3][k] += p.w;
      zero[k] |= p.w == 0;
    }
  for (int k = 0; k < n; ++k) {
    const bool in = k >= first && k < last && !zero[k];
    out[k] = in ? ushort4{static_cast<unsigned short>(s[0][k]), static_cast<unsigned short>(s[1][k]),
                          static_cast<unsigned short>(s[2][k]), static_cast<unsigned short>(s[3][k])}
                : ushort4{0, 0, 0, 0};
  }
}

LANE_KERNEL void window_column_means(float4* out, const ushort4* const* rows, int n, int R) {
  const float inv_n = 1.0f / static_cast<float>((2 * R + 1) * (2 * R + 1));
  int k0 = 0;
  // Eight pixels at a time: their ushort4 sums read as two words each, (R, G) and (B, A).
  for (; k0 + kLanes <= n; k0 += kLanes) {
    lane_float r = {}, g = {}, b = {};
    lane_int zero = {};
    for (int i = 0; i <= 2 * R; ++i) {
      lane_int low, high;
      std::memcpy(&low, rows[i] + k0, sizeof low);
      std::memcpy(&high, rows[i] + k0 + kLanes / 2, sizeof high);
      const lane_int rg = __builtin_shufflevector(low, high, 0, 2, 4, 6, 8, 10, 12, 14);
      const lane_int ba = __builtin_shufflevector(low, high, 1, 3, 5, 7, 9, 11, 13, 15);
      r += __builtin_convertvector(rg & 0xffff, lane_float) * (1.0f / 255.0f);
      g += __builtin_convertvector((rg >> 16) & 0xffff, lane_float) * (1.0f / 255.0f);
      b += __builtin_convertvector(ba & 0xffff, lane_float) * (1.0f / 255.0f);
      zero |= ((ba >> 16) & 0xffff) == 0;
    }
    for (int k = 0; k < kLanes; ++k)
      out[k0 + k] = zero[k] ? float4{0, 0, 0, 0} : float4{r[k] * inv_n, g[k] * inv_n, b[k] * inv_n, 1.0f};
  }
  for (int k = k0; k < n; ++k) {
    float r = 0.0f, g = 0.0f, b = 0.0f;
    bool zero = false;
    for (int i = 0; i <= 2 * R; ++i) {
      const ushort4 s = rows[i][k];
      r += s.x * (1.0f / 255.0f);
      g += s.y * (1.0f / 255.0f);
      b += s.z * (1.0f / 255.0f);
      zero |= s.w == 0;
    }
    out[k] = zero ? float4{0, 0, 0, 0} : float4{r * inv_n, g * inv_n, b * inv_n, 1.0f};
  }
}

}  // namespace depthmap_estimation_kernels
