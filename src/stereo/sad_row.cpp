#include "src/stereo/sad_row.h"

#include <cstdint>
#include <cstring>

#include "ketra/access.h"
#include "src/core/simd_lanes.h"

namespace depthmap_estimation_kernels {

namespace {

using Texture = device::Texture<uchar4, device::ReadMode::NormalizedFloat>;
constexpr float kScale = device::TexelTraits<uchar4>::scale;

LANE_INLINE lane_int int_lanes(int v) {
  lane_int r;
  for (int k = 0; k < kLanes; ++k) r[k] = v;
  return r;
}

// The texels at (i, j) of every lane, as 32-bit words (R in the low byte). The vector is built
// from its elements in one expression: filled lane by lane through memory, its load would wait
// for eight separate stores.
LANE_INLINE std::uint32_t word_at(const unsigned char* base, int index) {
  std::uint32_t w;
  std::memcpy(&w, base + static_cast<std::size_t>(index) * 4, 4);
  return w;
}

LANE_INLINE lane_int texels(Texture const& t, lane_int i, lane_int j) {
  const lane_int at = j * static_cast<int>(t.pitch / 4) + i;
  const unsigned char* b = t.base;
  return lane_int{static_cast<int>(word_at(b, at[0])), static_cast<int>(word_at(b, at[1])),
                  static_cast<int>(word_at(b, at[2])), static_cast<int>(word_at(b, at[3])),
                  static_cast<int>(word_at(b, at[4])), static_cast<int>(word_at(b, at[5])),
                  static_cast<int>(word_at(b, at[6])), static_cast<int>(word_at(b, at[7]))};
}

// Channel c (0 R, 1 G, 2 B) of texel words as the texture reads it: byte * (1 / 255).
LANE_INLINE lane_float channel(lane_int words, int c) {
  return __builtin_convertvector((words >> (8 * c)) & 0xff, lane_float) * kScale;
}

}  // namespace

LANE_KERNEL void sad_row(ketra::Array<float, 4> const& costs, int x0, int n, int y, int first, int last, float a,
                              float step, SweepCamera const& c, Texture const& reference, Texture const& other) {
  const int W = static_cast<int>(costs.extents.x), H = static_cast<int>(costs.extents.y);
  const float* m = c.P.m;
  const float right = static_cast<float>(W - 1), bottom = static_cast<float>(H - 1);
  for (int k0 = 0; k0 < n; k0 += kLanes) {
    // Lanes beyond the row's pixels repeat its last one and write nothing.
    lane_int x;
    for (int k = 0; k < kLanes; ++k) x[k] = x0 + k0 + (k0 + k < n ? k : n - 1 - k0);
    const int lanes = n - k0 < kLanes ? n - k0 : kLanes;
    const lane_int ref_words = texels(reference, x, int_lanes(y));
    const lane_float ref_r = channel(ref_words, 0), ref_g = channel(ref_words, 1), ref_b = channel(ref_words, 2);
    // reproject(): X = (W - 1 - x - cx) / fx * d, the first two factors shared by every label.
    const lane_float col = (__builtin_convertvector(W - 1 - x, lane_float) - c.cx) * c.inv_fx;
    for (int l = first; l < last; ++l) {
      const float d = label_depth<true>(a, step, l);
      const float Y = (static_cast<float>(H - 1 - y) - c.cy) * c.inv_fy * d;
      const lane_float X = col * d;
      const lane_float u = m[0] * X + m[1] * Y + m[2] * d + m[3];
      const lane_float v = m[4] * X + m[5] * Y + m[6] * d + m[7];
      const lane_float w = m[8] * X + m[9] * Y + m[10] * d + m[11];
      const lane_float px = u / w, py = v / w;
      const lane_int inside = (px >= 0.0f) & (px <= right) & (py >= 0.0f) & (py <= bottom);
      // tex2D at ((W - 1 - px) + 0.5, (H - 1 - py) + 0.5): inside the image no clamp acts and the
      // coordinates less 0.5 are not negative, so truncation is floor. Lanes outside read texel 0.
      const lane_float zero = lane_splat(0.0f);
      const lane_float xb = inside ? ((right - px) + 0.5f) - 0.5f : zero;
      const lane_float yb = inside ? ((bottom - py) + 0.5f) - 0.5f : zero;
      const lane_int i0 = __builtin_convertvector(xb, lane_int), j0 = __builtin_convertvector(yb, lane_int);
      const lane_float fa = xb - __builtin_convertvector(i0, lane_float);
      const lane_float fb = yb - __builtin_convertvector(j0, lane_float);
      const lane_int i1 = i0 + 1 < W ? i0 + 1 : int_lanes(W - 1), j1 = j0 + 1 < H ? j0 + 1 : int_lanes(H - 1);
      const lane_int t00 = texels(other, i0, j0), t10 = texels(other, i1, j0), t01 = texels(other, i0, j1),
                          t11 = texels(other, i1, j1);
      const lane_float w00 = (1.0f - fa) * (1.0f - fb), w10 = fa * (1.0f - fb), w01 = (1.0f - fa) * fb,
                            w11 = fa * fb;
      lane_float cost = zero;
      const lane_float* refs[3] = {&ref_r, &ref_g, &ref_b};
      for (int ch = 0; ch < 3; ++ch) {
        const lane_float o = (w00 * channel(t00, ch) + w10 * channel(t10, ch)) +
                                  (w01 * channel(t01, ch) + w11 * channel(t11, ch));
        const lane_float diff = lane_fabs(o - *refs[ch]);
        cost = ch == 0 ? diff : cost + diff;
      }
      float* sums = &ketra::element(costs, x0 + k0, y, l, 0);
      float* counts = &ketra::element(costs, x0 + k0, y, l, 1);
      if (lanes == kLanes) {
        lane_float s, n;
        std::memcpy(&s, sums, sizeof s);
        std::memcpy(&n, counts, sizeof n);
        s = inside ? s + cost : s;
        n = inside ? n + 1.0f : n;
        std::memcpy(sums, &s, sizeof s);
        std::memcpy(counts, &n, sizeof n);
      } else {
        for (int k = 0; k < lanes; ++k)
          if (inside[k]) sums[k] += cost[k], counts[k] += 1.0f;
      }
    }
  }
}

}  // namespace depthmap_estimation_kernels
