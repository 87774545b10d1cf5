#include "src/stereo/warp_row.h"

#include <cstddef>

#include "src/core/simd_lanes.h"

namespace depthmap_estimation_kernels {

namespace {

// Clamps and roundings are written out: the library calls would not be inlined on a plain x86-64.
inline float clamp01(float v) { return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v); }

// Rounds v in [0, 255] to the nearest integer, halves to even, as the default rounding mode does:
// adding 2^23 leaves no fraction bits.
inline unsigned char round_to_byte(float v) { return static_cast<unsigned char>((v + 8388608.0f) - 8388608.0f); }

inline float channel(device::Texture<uchar4, device::ReadMode::NormalizedFloat> const& t, int u, int v, int c) {
  const unsigned char* p = t.base + static_cast<std::size_t>(v) * t.pitch + static_cast<std::size_t>(u) * 4 + c;
  return static_cast<float>(*p) * device::TexelTraits<uchar4>::scale;
}

// The bilinear texture read at array position (xb, yb) = (W - 1 - px, H - 1 - py) of a valid
// reprojection, as tex2D computes it: the position lies within the image, so clamping changes
// nothing, and it is not negative, so truncation is floor.
inline uchar4 bilinear_bytes(device::Texture<uchar4, device::ReadMode::NormalizedFloat> const& t, float xb,
                             float yb) {
  const int i0 = static_cast<int>(xb), j0 = static_cast<int>(yb);
  const float a = xb - static_cast<float>(i0), b = yb - static_cast<float>(j0);
  const int i1 = i0 + 1 < t.width ? i0 + 1 : t.width - 1, j1 = j0 + 1 < t.height ? j0 + 1 : t.height - 1;
  unsigned char rgb[3];
  for (int c = 0; c < 3; ++c) {
    const float v = ((1.0f - a) * (1.0f - b) * channel(t, i0, j0, c) + a * (1.0f - b) * channel(t, i1, j0, c)) +
                    ((1.0f - a) * b * channel(t, i0, j1, c) + a * b * channel(t, i1, j1, c));
    rgb[c] = round_to_byte(clamp01(v) * 255.0f);
  }
  return uchar4{rgb[0], rgb[1], rgb[2], 255};
}

}  // namespace

WIDE_LANE_KERNEL void warp_row(
    uchar4* out, int x0, int n, int y, float d, int W, int H, SweepCamera const& c, float fx_scale,
    device::Texture<uchar4, device::ReadMode::NormalizedFloat> const& image) {
  const float* m = c.P.m;
  const float Y = (static_cast<float>(H - 1 - y) - c.cy) * c.inv_fy * d;
  const float scale_numerator = d * c.inv_fx * fx_scale;
  for (int k0 = 0; k0 < n; k0 += kWideLanes) {
    wide_lane_float col;
    for (int k = 0; k < kWideLanes; ++k) col[k] = static_cast<float>(W - 1 - (x0 + k0 + k));
    // reproject(), lane by lane.
    const wide_lane_float X = (col - c.cx) * c.inv_fx * d;
    const wide_lane_float u = m[0] * X + m[1] * Y + m[2] * d + m[3];
    const wide_lane_float v = m[4] * X + m[5] * Y + m[6] * d + m[7];
    const wide_lane_float w = m[8] * X + m[9] * Y + m[10] * d + m[11];
    const wide_lane_float px = u / w, py = v / w, s = scale_numerator / w;
    for (int k = 0; k < kWideLanes && k0 + k < n; ++k) {
      const Reprojection r{px[k], py[k], w[k]};
      out[k0 + k] = inside(r, W, H) && !(s[k] < 0.5f || s[k] > 2.0f)
                        ? bilinear_bytes(image, ((static_cast<float>(W - 1) - r.px) + 0.5f) - 0.5f,
                                         ((static_cast<float>(H - 1) - r.py) + 0.5f) - 0.5f)
                        : uchar4{0, 0, 0, 0};
    }
  }
}

}  // namespace depthmap_estimation_kernels
