#include "src/stereo/depthmap_estimation_kernels.h"

#include <cmath>
#include <cstddef>

#include "device/launch.h"
#include "ketra/access.h"
#include "src/stereo/ncc_window.h"
#include "src/stereo/sad_row.h"
#include "src/stereo/sweep_geometry.h"
#include "src/stereo/warp_row.h"
#include "src/stereo/window_means.h"

device::Texture<uchar4, device::ReadMode::NormalizedFloat> ref_img_tex;
device::Texture<uchar4, device::ReadMode::NormalizedFloat> img_tex;
device::Texture<float> P2_tex;

namespace depthmap_estimation_kernels {

namespace {

using ketra::element;

HOST_DEVICE inline float4 operator+(float4 a, float4 b) { return {a.x + b.x, a.y + b.y, a.z + b.z, a.w + b.w}; }
HOST_DEVICE inline float4 operator-(float4 a, float4 b) { return {a.x - b.x, a.y - b.y, a.z - b.z, a.w - b.w}; }
HOST_DEVICE inline float dot(float4 a, float4 b) { return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w; }

// Adds one view's cost to the cell of pixel (x, y) and label l.
HOST_DEVICE inline void add_cost(ketra::Array<float, 4> const& costs, int x, int y, int l, float cost) {
  element(costs, x, y, l, 0) += cost;
  element(costs, x, y, l, 1) += 1.0f;
}

// 1 - (ncc + 1) / 2 clamped to [0, 1]: 0 is perfect agreement.
// Clamps and roundings are written out: the library calls would not be inlined on a plain x86-64.
HOST_DEVICE inline float clamp01(float v) { return v < 0.0f ? 0.0f : (v > 1.0f ? 1.0f : v); }

// 1 - (ncc + 1) / 2 clamped to [0, 1]: 0 is perfect agreement. ncc is finite here.
HOST_DEVICE inline float cost_of_ncc(float ncc) { return 1.0f - clamp01(0.5f * ncc + 0.5f); }

HOST_DEVICE inline int extent(ketra::Array<float, 4> const& a, int d) {
  return static_cast<int>(ketra::internal::component(a.extents, d));
}

// The reference pixel (x, y) and the other view's sample at its reprojection.
HOST_DEVICE inline float4 reference_colour(int x, int y) {
  return device::tex2D(ref_img_tex, static_cast<float>(x) + 0.5f, static_cast<float>(y) + 0.5f);
}
HOST_DEVICE inline float4 other_colour(Reprojection const& r, int W, int H) {
  return device::tex2D(img_tex, (static_cast<float>(W - 1) - r.px) + 0.5f, (static_cast<float>(H - 1) - r.py) + 0.5f);
}

// The NCC cost of the directly reprojected window of pixel (x, y) at depth d, or NaN when the
// label is skipped.
template <int R>
HOST_DEVICE float direct_ncc_cost(int x, int y, float d, int W, int H, SweepCamera const& cam) {
  constexpr int n = (2 * R + 1) * (2 * R + 1);
  float4 ref_values[n], img_values[n];  // the on-chip windows of the block
  float4 ref_sum{0, 0, 0, 0}, img_sum{0, 0, 0, 0};
  int k = 0;
  for (int dy = -R; dy <= R; ++dy)
    for (int dx = -R; dx <= R; ++dx, ++k) {
      const Reprojection r = reproject(x + dx, y + dy, d, W, H, cam);
      if (inside(r, W, H)) {
        img_values[k] = other_colour(r, W, H);
        ref_values[k] = reference_colour(x + dx, y + dy);
      } else {
        img_values[k] = ref_values[k] = float4{0, 0, 0, 0};
      }
      ref_sum = ref_sum + ref_values[k];
      img_sum = img_sum + img_values[k];
    }
  // The reference's alpha sum weighs the valid samples: at least 70 % of the window.
  if (ref_sum.w < 0.7f * static_cast<float>(n)) return NAN;
  const float4 ref_mean{ref_sum.x / ref_sum.w, ref_sum.y / ref_sum.w, ref_sum.z / ref_sum.w, ref_sum.w / ref_sum.w};
  const float4 img_mean{img_sum.x / img_sum.w, img_sum.y / img_sum.w, img_sum.z / img_sum.w, img_sum.w / img_sum.w};
  float ab = 0.0f, aa = 0.0f, bb = 0.0f;
  for (k = 0; k < n; ++k) {
    if (img_values[k].w == 0.0f) continue;
    const float4 a = img_values[k] - img_mean, b = ref_values[k] - ref_mean;
    ab += dot(a, b);
    aa += dot(a, a);
    bb += dot(b, b);
  }
  const float prod = aa * bb;
  if (!(prod > 1e-7f)) return NAN;
  return cost_of_ncc(ab / std::sqrt(prod));
}

}  // namespace

template <bool InverseDepth, int LabelsPerThread>
void add_matching_costs_SAD_kernel(LaunchShape shape, ketra::Array<float, 4> costs, float a, float step, float inv_fx,
                                   float inv_fy, float cx, float cy, ProjectionMatrix P) {
  static_assert(InverseDepth, "the row form sweeps inverse depth");
  const SweepCamera cam{inv_fx, inv_fy, cx, cy, P};
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    // The pixels of a block row are one element, their labels computed side by side.
    const int W = extent(costs, 0), H = extent(costs, 1), L = extent(costs, 2);
    const int x0 = idx.x(), y = idx.y(), first = idx.z() * LabelsPerThread;
    if (idx.thread.x != 0 || x0 >= W || y >= H || first >= L) return;
    const int n = W - x0 < static_cast<int>(idx.blockDim.x) ? W - x0 : static_cast<int>(idx.blockDim.x);
    const int last = first + LabelsPerThread < L ? first + LabelsPerThread : L;
    sad_row(costs, x0, n, y, first, last, a, step, cam, ref_img_tex, img_tex);
  });
}

template <bool InverseDepth, int LabelsPerThread, int TileW, int TileH, int TileD, int R>
void add_matching_costs_NCC_kernel(LaunchShape shape, ketra::Array<float, 4> costs, float a, float step,
                                   float inv_fx, float inv_fy, float cx, float cy, ProjectionMatrix P) {
  const SweepCamera cam{inv_fx, inv_fy, cx, cy, P};
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    const int W = extent(costs, 0), H = extent(costs, 1), L = extent(costs, 2);
    const int x = idx.x(), y = idx.y(), first = idx.z() * LabelsPerThread;
    // The left and top margins are one wider than the right and bottom ones.
    if (x < R + 1 || y < R + 1 || x >= W - R || y >= H - R || first >= L) return;
    const int last = first + LabelsPerThread < L ? first + LabelsPerThread : L;
    for (int l = first; l < last; ++l) {
      const float cost = direct_ncc_cost<R>(x, y, label_depth<InverseDepth>(a, step, l), W, H, cam);
      if (cost == cost) add_cost(costs, x, y, l, cost);
    }
  });
}

void add_matching_costs_warp_kernel(LaunchShape shape, ketra::Array<uchar4, 2> warped, float depth, float inv_fx,
                                    float inv_fy, float cx, float cy, ProjectionMatrix P, float fx_scale) {
  const SweepCamera cam{inv_fx, inv_fy, cx, cy, P};
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    // The 32 pixels of a block row are one element, their reprojections computed side by side.
    const int W = static_cast<int>(warped.extents.x), H = static_cast<int>(warped.extents.y);
    const int x0 = idx.x(), y = idx.y();
    if (idx.thread.x != 0 || x0 >= W || y >= H) return;
    const int n = W - x0 < static_cast<int>(idx.blockDim.x) ? W - x0 : static_cast<int>(idx.blockDim.x);
    warp_row(&element(warped, x0, y), x0, n, y, depth, W, H, cam, fx_scale, img_tex);
  });
}

template <int BlockW, int BlockH, int R>
void add_matching_costs_mean_kernel1(LaunchShape shape, ketra::Array<ushort4, 2> row_sums,
                                     ketra::Array<uchar4, 2> image) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    // The pixels of a block row are one element, summed side by side.
    const int W = static_cast<int>(image.extents.x), H = static_cast<int>(image.extents.y);
    const int x0 = idx.x(), y = idx.y();
    if (idx.thread.x != 0 || x0 >= W || y >= H) return;
    const int n = W - x0 < static_cast<int>(idx.blockDim.x) ? W - x0 : static_cast<int>(idx.blockDim.x);
    // Pixels beyond the image count as (0, 0, 0, 0), so their alpha of 0 invalidates the sum.
    window_row_sums(&element(row_sums, x0, y), &element(image, 0, y), x0, n, W, R);
  });
}

template <int R>
void add_matching_costs_mean_kernel2(LaunchShape shape, ketra::Array<float4, 2> means,
                                     ketra::Array<ushort4, 2> row_sums) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    const int W = static_cast<int>(row_sums.extents.x), H = static_cast<int>(row_sums.extents.y);
    const int x0 = idx.x(), y = idx.y();
    if (idx.thread.x != 0 || x0 >= W || y >= H) return;
    const int n = W - x0 < static_cast<int>(idx.blockDim.x) ? W - x0 : static_cast<int>(idx.blockDim.x);
    float4* out = &element(means, x0, y);
    if (y < R || y >= H - R) {  // a row of the window lies outside the image
      for (int k = 0; k < n; ++k) out[k] = float4{0, 0, 0, 0};
      return;
    }
    const ushort4* rows[2 * R + 1];
    for (int i = 0; i <= 2 * R; ++i) rows[i] = &element(row_sums, x0, y - R + i);
    window_column_means(out, rows, n, R);
  });
}

template <int BlockW, int BlockH, int R>
void add_matching_costs_NCC_kernel2(LaunchShape shape, ketra::Array<float, 4> costs,
                                    ketra::Array<uchar4, 2> /*ref_img: read through ref_img_tex*/,
                                    ketra::Array<float4, 2> ref_mean, ketra::Array<uchar4, 2> warped,
                                    ketra::Array<float4, 2> warped_mean, int label) {
  static_assert(BlockW == NccTile::cols && BlockH == NccTile::rows && R == NccTile::halo, "the tile is the block");
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    // The block's threads share one staged tile; here one element computes the whole block.
    if (idx.thread.x != 0 || idx.thread.y != 0) return;
    const int W = extent(costs, 0), H = extent(costs, 1);
    const int x0 = static_cast<int>(idx.block.x) * BlockW, y0 = static_cast<int>(idx.block.y) * BlockH;
    NccTile tile;
    stage_ncc_colours(tile, reinterpret_cast<const unsigned char*>(warped.data), warped.pitch.y, ref_img_tex.base,
                      ref_img_tex.pitch, x0, y0, W, H);
    for (int r = 0; r < BlockH; ++r)
      for (int k = 0; k < BlockW; ++k) {
        const bool in = x0 + k < W && y0 + r < H;
        const float4 wm = in ? element(warped_mean, x0 + k, y0 + r) : float4{0, 0, 0, 0};
        const float4 rm = in ? element(ref_mean, x0 + k, y0 + r) : float4{0, 0, 0, 0};
        tile.warped_mean[0][r][k] = wm.x, tile.warped_mean[1][r][k] = wm.y, tile.warped_mean[2][r][k] = wm.z;
        tile.reference_mean[0][r][k] = rm.x, tile.reference_mean[1][r][k] = rm.y, tile.reference_mean[2][r][k] = rm.z;
      }
    NccSums sums[BlockH][BlockW];
    ncc_tile_sums(tile, sums);
    for (int r = 0; r < BlockH; ++r)
      for (int k = 0; k < BlockW; ++k) {
        const int x = x0 + k, y = y0 + r;
        // Margins one wider on the left and top; the warped mean must exist, the reference's is not tested.
        if (x < R + 1 || y < R + 1 || x >= W - R || y >= H - R || element(warped_mean, x, y).w == 0.0f) continue;
        const float prod = sums[r][k].aa * sums[r][k].bb;
        if (prod > 1e-6f) add_cost(costs, x, y, label, cost_of_ncc(sums[r][k].ab / std::sqrt(prod)));
      }
  });
}

template <bool InverseDepth>
device::Error convert_labels_to_depth_kernel(LaunchShape shape, ketra::Array<float, 2> labels, float a, float step) {
  return device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    const int x = idx.x(), y = idx.y();
    if (x >= static_cast<int>(labels.extents.x) || y >= static_cast<int>(labels.extents.y)) return;
    float& v = element(labels, x, y);
    v = InverseDepth ? 1.0f / (v * step + a) : v * step + a;
  });
}

template <int ElementsPerThread>
void shift_dims_kernel(LaunchShape shape, ketra::Array<float, 3> result, ketra::Array<float, 3> input) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    const int X = static_cast<int>(input.extents.x), Z = static_cast<int>(input.extents.z);
    const int y = static_cast<int>(idx.block.y);
    // The tile's column (along z of the input) of this thread, and its rows (along x).
    const int z = static_cast<int>(idx.block.z * 32 + idx.thread.x);
    if (z >= Z) return;
    const int rows = static_cast<int>(idx.blockDim.z);
    for (int k = 0; k < ElementsPerThread; ++k) {
      const int x = static_cast<int>(idx.block.x * 32 + idx.thread.z) + k * rows;
      if (x < X) element(result, z, x, y) = element(input, x, y, z);
    }
  });
}

void shift_dims_kernel_naive(LaunchShape shape, ketra::Array<float, 3> result, ketra::Array<float, 3> input) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    const int x = idx.x(), y = idx.y(), z = idx.z();
    if (x < static_cast<int>(input.extents.x) && y < static_cast<int>(input.extents.y) &&
        z < static_cast<int>(input.extents.z))
      element(result, z, x, y) = element(input, x, y, z);
  });
}

template void add_matching_costs_SAD_kernel<true, 16>(LaunchShape, ketra::Array<float, 4>, float, float, float, float,
                                                      float, float, ProjectionMatrix);
template void add_matching_costs_NCC_kernel<true, 16, 16, 1, 1, 3>(LaunchShape, ketra::Array<float, 4>, float, float,
                                                                   float, float, float, float, ProjectionMatrix);
template void add_matching_costs_mean_kernel1<32, 4, 3>(LaunchShape, ketra::Array<ushort4, 2>, ketra::Array<uchar4, 2>);
template void add_matching_costs_mean_kernel2<3>(LaunchShape, ketra::Array<float4, 2>, ketra::Array<ushort4, 2>);
template void add_matching_costs_NCC_kernel2<32, 4, 3>(LaunchShape, ketra::Array<float, 4>, ketra::Array<uchar4, 2>,
                                                       ketra::Array<float4, 2>, ketra::Array<uchar4, 2>,
                                                       ketra::Array<float4, 2>, int);
template device::Error convert_labels_to_depth_kernel<true>(LaunchShape, ketra::Array<float, 2>, float, float);
template void shift_dims_kernel<8>(LaunchShape, ketra::Array<float, 3>, ketra::Array<float, 3>);

}  // namespace depthmap_estimation_kernels
