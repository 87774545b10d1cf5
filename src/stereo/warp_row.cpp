#include "src/stereo/warp_row.h"

#include <cstring>

#include "src/stereo/texel_lanes.h"

namespace depthmap_estimation_kernels {

LANE_KERNEL void warp_row(uchar4* out, int x0, int n, int y, float d, int W, int H, SweepCamera const& c,
                          float fx_scale, ColourTexture const& image) {
  const float* m = c.P.m;
  const float Y = (static_cast<float>(H - 1 - y) - c.cy) * c.inv_fy * d;
  const float scale_numerator = d * c.inv_fx * fx_scale;
  const float right = static_cast<float>(W - 1), bottom = static_cast<float>(H - 1);
  for (int k0 = 0; k0 < n; k0 += kLanes) {
    lane_float col;
    for (int k = 0; k < kLanes; ++k) col[k] = static_cast<float>(W - 1 - (x0 + k0 + k));
    // reproject(), lane by lane.
    const lane_float X = (col - c.cx) * c.inv_fx * d;
    const lane_float u = m[0] * X + m[1] * Y + m[2] * d + m[3];
    const lane_float v = m[4] * X + m[5] * Y + m[6] * d + m[7];
    const lane_float w = m[8] * X + m[9] * Y + m[10] * d + m[11];
    const lane_float px = u / w, py = v / w, s = scale_numerator / w;
    // Inside the other view, and sampling rates within a factor of 2 of each other.
    const lane_int valid = (px >= 0.0f) & (px <= right) & (py >= 0.0f) & (py <= bottom) & ~((s < 0.5f) | (s > 2.0f));
    const lane_float zero = lane_splat(0.0f);
    lane_float rgb[3];
    bilinear_lanes(image, valid ? ((right - px) + 0.5f) - 0.5f : zero, valid ? ((bottom - py) + 0.5f) - 0.5f : zero,
                   rgb);
    lane_int word = int_lanes(255 << 24);
    for (int ch = 0; ch < 3; ++ch) {
      // Clamped to [0, 1] and rounded to the nearest byte, halves to even: adding 2^23 leaves no
      // fraction bits.
      lane_float v01 = rgb[ch] < 0.0f ? zero : rgb[ch];
      v01 = v01 > 1.0f ? lane_splat(1.0f) : v01;
      const lane_float byte = (v01 * 255.0f + 8388608.0f) - 8388608.0f;
      word |= __builtin_convertvector(byte, lane_int) << (8 * ch);
    }
    word = valid ? word : int_lanes(0);
    const int lanes = n - k0 < kLanes ? n - k0 : kLanes;
    std::memcpy(out + k0, &word, static_cast<std::size_t>(lanes) * sizeof(uchar4));
  }
}

}  // namespace depthmap_estimation_kernels
