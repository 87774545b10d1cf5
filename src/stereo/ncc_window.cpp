#include "src/stereo/ncc_window.h"

#include <cstring>

#include "device/texture.h"
#include "src/core/simd_lanes.h"

namespace depthmap_estimation_kernels {

namespace {

// Channel c of one colour byte quadruple as the texture reads it.
inline float byte_channel(const unsigned char* p, int c) {
  return p[c] * device::TexelTraits<uchar4>::scale;
}

}  // namespace

LANE_KERNEL void stage_ncc_colours(NccTile& t, const unsigned char* warped, std::size_t warped_pitch,
                                   const unsigned char* reference, std::size_t reference_pitch, int x0, int y0, int W,
                                   int H) {
  constexpr int used = NccTile::cols + 2 * NccTile::halo;  // columns of a staged row that are read
  constexpr float scale = device::TexelTraits<uchar4>::scale;
  for (int i = 0; i < NccTile::staged_rows; ++i) {
    const int v = y0 - NccTile::halo + i;
    const bool row_in = v >= 0 && v < H;
    const unsigned char* w = warped + static_cast<std::size_t>(row_in ? v : 0) * warped_pitch;
    const unsigned char* r = reference + static_cast<std::size_t>(row_in ? v : 0) * reference_pitch;
    for (int j0 = 0; j0 < NccTile::stride; j0 += kLanes) {
      const int u0 = x0 - NccTile::halo + j0;
      if (row_in && u0 >= 0 && u0 + kLanes <= W && j0 + kLanes <= used) {
        // Eight whole pixels: one load per image, the channels taken apart in lanes.
        lane_int ww, rw;
        std::memcpy(&ww, w + static_cast<std::size_t>(u0) * 4, sizeof ww);
        std::memcpy(&rw, r + static_cast<std::size_t>(u0) * 4, sizeof rw);
        for (int c = 0; c < 3; ++c) {
          const lane_float wc = __builtin_convertvector((ww >> (8 * c)) & 0xff, lane_float) * scale;
          const lane_float rc = __builtin_convertvector((rw >> (8 * c)) & 0xff, lane_float) * scale;
          std::memcpy(&t.warped[c][i][j0], &wc, sizeof wc);
          std::memcpy(&t.reference[c][i][j0], &rc, sizeof rc);
        }
        continue;
      }
      for (int j = j0; j < j0 + kLanes; ++j) {
        const int u = x0 - NccTile::halo + j;
        const bool in = row_in && u >= 0 && u < W && j < used;
        for (int c = 0; c < 3; ++c) {
          t.warped[c][i][j] = in ? byte_channel(w + static_cast<std::size_t>(u) * 4, c) : 0.0f;
          t.reference[c][i][j] = in ? byte_channel(r + static_cast<std::size_t>(u) * 4, c) : 0.0f;
        }
      }
    }
  }
}

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
