#include "src/stereo/sad_row.h"

#include <cstring>

#include "ketra/access.h"
#include "src/stereo/texel_lanes.h"

namespace depthmap_estimation_kernels {

LANE_KERNEL void sad_row(ketra::Array<float, 4> const& costs, int x0, int n, int y, int first, int last, float a,
                         float step, SweepCamera const& c, ColourTexture const& reference, ColourTexture const& other) {
  const int W = static_cast<int>(costs.extents.x), H = static_cast<int>(costs.extents.y);
  const float* m = c.P.m;
  const float right = static_cast<float>(W - 1), bottom = static_cast<float>(H - 1);
  for (int k0 = 0; k0 < n; k0 += kLanes) {
    // Lanes beyond the row's pixels repeat its last one and write nothing.
    lane_int x;
    for (int k = 0; k < kLanes; ++k) x[k] = x0 + k0 + (k0 + k < n ? k : n - 1 - k0);
    const int lanes = n - k0 < kLanes ? n - k0 : kLanes;
    const lane_int ref_words = texel_lanes(reference, x, int_lanes(y));
    const lane_float ref[3] = {channel_lanes(ref_words, 0), channel_lanes(ref_words, 1), channel_lanes(ref_words, 2)};
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
      // tex2D at ((W - 1 - px) + 0.5, (H - 1 - py) + 0.5); lanes outside read texel 0.
      const lane_float zero = lane_splat(0.0f);
      lane_float o[3];
      bilinear_lanes(other, inside ? ((right - px) + 0.5f) - 0.5f : zero, inside ? ((bottom - py) + 0.5f) - 0.5f : zero,
                     o);
      const lane_float cost = (lane_fabs(o[0] - ref[0]) + lane_fabs(o[1] - ref[1])) + lane_fabs(o[2] - ref[2]);
      float* sums = &ketra::element(costs, x0 + k0, y, l, 0);
      float* counts = &ketra::element(costs, x0 + k0, y, l, 1);
      if (lanes == kLanes) {
        lane_float s, k;
        std::memcpy(&s, sums, sizeof s);
        std::memcpy(&k, counts, sizeof k);
        s = inside ? s + cost : s;
        k = inside ? k + 1.0f : k;
        std::memcpy(sums, &s, sizeof s);
        std::memcpy(counts, &k, sizeof k);
      } else {
        for (int k = 0; k < lanes; ++k)
          if (inside[k]) sums[k] += cost[k], counts[k] += 1.0f;
      }
    }
  }
}

}  // namespace depthmap_estimation_kernels
