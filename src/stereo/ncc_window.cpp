#include "src/stereo/ncc_window.h"

#include "src/core/simd_lanes.h"

namespace depthmap_estimation_kernels {

// Sixteen pixels of a row side by side; each lane computes exactly what the scalar code would.
WIDE_LANE_KERNEL void ncc_tile_sums(NccTile const& t, NccSums (&sums)[NccTile::rows][NccTile::cols]) {
  constexpr int R = NccTile::halo;
  const auto& w = t.warped;
  const auto& f = t.reference;
  for (int r = 0; r < NccTile::rows; ++r)
    for (int k = 0; k < NccTile::cols; k += kWideLanes) {
      const wide_lane_float wm0 = wide_lane_load(&t.warped_mean[0][r][k]),
                            wm1 = wide_lane_load(&t.warped_mean[1][r][k]),
                            wm2 = wide_lane_load(&t.warped_mean[2][r][k]);
      const wide_lane_float rm0 = wide_lane_load(&t.reference_mean[0][r][k]),
                            rm1 = wide_lane_load(&t.reference_mean[1][r][k]),
                            rm2 = wide_lane_load(&t.reference_mean[2][r][k]);
      wide_lane_float ab = {}, aa = {}, bb = {};
      for (int dy = -R; dy <= R; ++dy)
        for (int dx = -R; dx <= R; ++dx) {
          const int i = r + R + dy, j = k + R + dx;
          const wide_lane_float a0 = wide_lane_load(&w[0][i][j]) - wm0, a1 = wide_lane_load(&w[1][i][j]) - wm1,
                                a2 = wide_lane_load(&w[2][i][j]) - wm2;
          const wide_lane_float b0 = wide_lane_load(&f[0][i][j]) - rm0, b1 = wide_lane_load(&f[1][i][j]) - rm1,
                                b2 = wide_lane_load(&f[2][i][j]) - rm2;
          ab += a0 * b0 + a1 * b1 + a2 * b2;
          aa += a0 * a0 + a1 * a1 + a2 * a2;
          bb += b0 * b0 + b1 * b1 + b2 * b2;
        }
      for (int lane = 0; lane < kWideLanes; ++lane) sums[r][k + lane] = NccSums{ab[lane], aa[lane], bb[lane]};
    }
}

}  // namespace depthmap_estimation_kernels
