#include "src/stereo/sad_row.h"

#include <cstdint>
#include <cstring>

#include "ketra/access.h"
#include "src/core/simd_lanes.h"

namespace depthmap_estimation_kernels {

namespace {

typedef int wide_lane_int __attribute__((vector_size(4 * kWideLanes)));  // masks: all bits set for true
using Texture = device::Texture<uchar4, device::ReadMode::NormalizedFloat>;
constexpr float kScale = device::TexelTraits<uchar4>::scale;

LANE_INLINE wide_lane_float wide_splat(float v) {
  wide_lane_float r;
  for (int k = 0; k < kWideLanes; ++k) r[k] = v;
  return r;
}

LANE_INLINE wide_lane_int wide_splat(int v) {
  wide_lane_int r;
  for (int k = 0; k < kWideLanes; ++k) r[k] = v;
  return r;
}

LANE_INLINE wide_lane_float wide_fabs(wide_lane_float v) {
  wide_lane_int bits;
  std::memcpy(&bits, &v, sizeof v);
  bits &= 0x7fffffff;
  std::memcpy(&v, &bits, sizeof v);
  return v;
}

// The texels at (i, j) of every lane, as 32-bit words (R in the low byte).
LANE_INLINE wide_lane_int texels(Texture const& t, wide_lane_int i, wide_lane_int j) {
  wide_lane_int r;
  for (int k = 0; k < kWideLanes; ++k) {
    std::uint32_t word;
    std::memcpy(&word, t.base + static_cast<std::size_t>(j[k]) * t.pitch + static_cast<std::size_t>(i[k]) * 4, 4);
    r[k] = static_cast<int>(word);
  }
  return r;
}

// Channel c (0 R, 1 G, 2 B) of texel words as the texture reads it: byte * (1 / 255).
LANE_INLINE wide_lane_float channel(wide_lane_int words, int c) {
  return __builtin_convertvector((words >> (8 * c)) & 0xff, wide_lane_float) * kScale;
}

}  // namespace

WIDE_LANE_KERNEL void sad_row(ketra::Array<float, 4> const& costs, int x0, int n, int y, int first, int last, float a,
                              float step, SweepCamera const& c, Texture const& reference, Texture const& other) {
  const int W = static_cast<int>(costs.extents.x), H = static_cast<int>(costs.extents.y);
  const float* m = c.P.m;
  const float right = static_cast<float>(W - 1), bottom = static_cast<float>(H - 1);
  for (int k0 = 0; k0 < n; k0 += kWideLanes) {
    // Lanes beyond the row's pixels repeat its last one and write nothing.
    wide_lane_int x;
    for (int k = 0; k < kWideLanes; ++k) x[k] = x0 + k0 + (k0 + k < n ? k : n - 1 - k0);
    const int lanes = n - k0 < kWideLanes ? n - k0 : kWideLanes;
    const wide_lane_int ref_words = texels(reference, x, wide_splat(y));
    const wide_lane_float ref_r = channel(ref_words, 0), ref_g = channel(ref_words, 1), ref_b = channel(ref_words, 2);
    // reproject(): X = (W - 1 - x - cx) / fx * d, the first two factors shared by every label.
    const wide_lane_float col = (__builtin_convertvector(W - 1 - x, wide_lane_float) - c.cx) * c.inv_fx;
    for (int l = first; l < last; ++l) {
      const float d = label_depth<true>(a, step, l);
      const float Y = (static_cast<float>(H - 1 - y) - c.cy) * c.inv_fy * d;
      const wide_lane_float X = col * d;
      const wide_lane_float u = m[0] * X + m[1] * Y + m[2] * d + m[3];
      const wide_lane_float v = m[4] * X + m[5] * Y + m[6] * d + m[7];
      const wide_lane_float w = m[8] * X + m[9] * Y + m[10] * d + m[11];
      const wide_lane_float px = u / w, py = v / w;
      const wide_lane_int inside = (px >= 0.0f) & (px <= right) & (py >= 0.0f) & (py <= bottom);
      // tex2D at ((W - 1 - px) + 0.5, (H - 1 - py) + 0.5): inside the image no clamp acts and the
      // coordinates less 0.5 are not negative, so truncation is floor. Lanes outside read texel 0.
      const wide_lane_float zero = wide_splat(0.0f);
      const wide_lane_float xb = inside ? ((right - px) + 0.5f) - 0.5f : zero;
      const wide_lane_float yb = inside ? ((bottom - py) + 0.5f) - 0.5f : zero;
      const wide_lane_int i0 = __builtin_convertvector(xb, wide_lane_int), j0 = __builtin_convertvector(yb, wide_lane_int);
      const wide_lane_float fa = xb - __builtin_convertvector(i0, wide_lane_float);
      const wide_lane_float fb = yb - __builtin_convertvector(j0, wide_lane_float);
      const wide_lane_int i1 = i0 + 1 < W ? i0 + 1 : wide_splat(W - 1), j1 = j0 + 1 < H ? j0 + 1 : wide_splat(H - 1);
      const wide_lane_int t00 = texels(other, i0, j0), t10 = texels(other, i1, j0), t01 = texels(other, i0, j1),
                          t11 = texels(other, i1, j1);
      const wide_lane_float w00 = (1.0f - fa) * (1.0f - fb), w10 = fa * (1.0f - fb), w01 = (1.0f - fa) * fb,
                            w11 = fa * fb;
      wide_lane_float cost = zero;
      const wide_lane_float* refs[3] = {&ref_r, &ref_g, &ref_b};
      for (int ch = 0; ch < 3; ++ch) {
        const wide_lane_float o = (w00 * channel(t00, ch) + w10 * channel(t10, ch)) +
                                  (w01 * channel(t01, ch) + w11 * channel(t11, ch));
        const wide_lane_float diff = wide_fabs(o - *refs[ch]);
        cost = ch == 0 ? diff : cost + diff;
      }
      float* sums = &ketra::element(costs, x0 + k0, y, l, 0);
      float* counts = &ketra::element(costs, x0 + k0, y, l, 1);
      for (int k = 0; k < lanes; ++k)
        if (inside[k]) sums[k] += cost[k], counts[k] += 1.0f;
    }
  }
}

}  // namespace depthmap_estimation_kernels
