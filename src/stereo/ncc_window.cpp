#include "src/stereo/ncc_window.h"

#include <cstring>

namespace depthmap_estimation_kernels {

namespace {

// Sixteen pixels of a row side by side; each lane computes exactly what the scalar code would.
constexpr int kLanes = 16;
typedef float Lanes __attribute__((vector_size(4 * kLanes)));

// Loads through an out-parameter: a returned vector would depend on the target's ABI.
inline Lanes& load(Lanes& v, const float* p) {
  std::memcpy(&v, p, sizeof(v));
  return v;
}

}  // namespace

__attribute__((target_clones("avx512f", "avx2", "default"))) void ncc_tile_sums(
    NccTile const& t, NccSums (&sums)[NccTile::rows][NccTile::cols]) {
  constexpr int R = NccTile::halo;
  for (int r = 0; r < NccTile::rows; ++r)
    for (int k = 0; k < NccTile::cols; k += kLanes) {
      Lanes wm0, wm1, wm2, rm0, rm1, rm2, w, ab = {}, aa = {}, bb = {};
      load(wm0, &t.warped_mean[0][r][k]), load(wm1, &t.warped_mean[1][r][k]), load(wm2, &t.warped_mean[2][r][k]);
      load(rm0, &t.reference_mean[0][r][k]), load(rm1, &t.reference_mean[1][r][k]);
      load(rm2, &t.reference_mean[2][r][k]);
      for (int dy = -R; dy <= R; ++dy)
        for (int dx = -R; dx <= R; ++dx) {
          const int i = r + R + dy, j = k + R + dx;
          const Lanes a0 = load(w, &t.warped[0][i][j]) - wm0, a1 = load(w, &t.warped[1][i][j]) - wm1,
                      a2 = load(w, &t.warped[2][i][j]) - wm2;
          const Lanes b0 = load(w, &t.reference[0][i][j]) - rm0, b1 = load(w, &t.reference[1][i][j]) - rm1,
                      b2 = load(w, &t.reference[2][i][j]) - rm2;
          ab += a0 * b0 + a1 * b1 + a2 * b2;
          aa += a0 * a0 + a1 * a1 + a2 * a2;
          bb += b0 * b0 + b1 * b1 + b2 * b2;
        }
      for (int lane = 0; lane < kLanes; ++lane) sums[r][k + lane] = NccSums{ab[lane], aa[lane], bb[lane]};
    }
}

}  // namespace depthmap_estimation_kernels
