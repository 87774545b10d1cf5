#pragma once

#include "device/error.h"
#include "device/stream.h"
#include "device/texture.h"
#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/render/projection.h"
#include "src/render/render_depthmaps_kernels.h"

// Device code of the plane sweep, semi-global matching and the operators around them. A kernel
// is called with its launch shape first and runs its per-element body over every thread of that
// shape; threads beyond the arrays they write return at once, and launch errors are left for the
// caller's _CHECK_CUDA_ERROR (or returned, where a kernel returns its status).
//
// Labels are uniform in inverse depth (the template flag InverseDepth is true in every use):
// label l stands for the depth 1 / (a + l * step), with a = 1 / depth_first and
// step = (1 / depth_last - 1 / depth_first) / (L - 1).
//
// Pixel arithmetic follows the mirrored image plane: pixel (x, y) lies at camera-plane
// coordinates ((W - 1 - x - cx) / fx, (H - 1 - y - cy) / fy) with the mirrored principal point,
// and a projected position (px, py) is array pixel (W - 1 - px, H - 1 - py). P maps reference
// camera coordinates to homogeneous pixel coordinates of the other view.
namespace depthmap_estimation_kernels {

using render_depthmaps_kernels::LaunchShape;

// --- Matching costs into a volume (W, H, L, 2): plane 0 sums costs, plane 1 counts views. ---

// Per pixel and label (LabelsPerThread labels per thread along the grid's z): the sum of absolute
// RGB differences of ref_img_tex at the pixel and img_tex at its reprojection; invalid
// reprojections add nothing.
template <bool InverseDepth, int LabelsPerThread>
void add_matching_costs_SAD_kernel(LaunchShape shape, ketra::Array<float, 4> costs, float a, float step, float inv_fx,
                                   float inv_fy, float cx, float cy, ProjectionMatrix P);

// Per pixel and label: 1 - (NCC + 1) / 2 over a (2R+1)^2 window whose pixels are reprojected one
// by one. Pixels with x < R + 1, y < R + 1, x >= W - R or y >= H - R take no part; a label is
// skipped when fewer than 70 % of the window's samples are valid or a window is flat.
// TileW x TileH x TileD is the block the on-chip windows were sized for.
template <bool InverseDepth, int LabelsPerThread, int TileW, int TileH, int TileD, int R>
void add_matching_costs_NCC_kernel(LaunchShape shape, ketra::Array<float, 4> costs, float a, float step,
                                   float inv_fx, float inv_fy, float cx, float cy, ProjectionMatrix P);

// The other view (img_tex) warped into the reference at one depth: bilinear colour with alpha
// 255, or (0, 0, 0, 0) where the reprojection leaves the image or the two views' sampling rates
// differ by more than a factor of 2 (scale test with fx_scale, the reference's fx).
void add_matching_costs_warp_kernel(LaunchShape shape, ketra::Array<uchar4, 2> warped, float depth, float inv_fx,
                                    float inv_fy, float cx, float cy, ProjectionMatrix P, float fx_scale);

// Sums of the 2R+1 pixels of a row centred on each pixel, or (0, 0, 0, 0) when one of them lies
// outside the image or has alpha 0. BlockW x BlockH is the launch block.
template <int BlockW, int BlockH, int R>
void add_matching_costs_mean_kernel1(LaunchShape shape, ketra::Array<ushort4, 2> row_sums,
                                     ketra::Array<uchar4, 2> image);

// Window means (RGB in 0..1, alpha 1) from the row sums of the 2R+1 rows centred on each pixel, or
// (0, 0, 0, 0) when a row lies outside the image or has alpha sum 0.
template <int R>
void add_matching_costs_mean_kernel2(LaunchShape shape, ketra::Array<float4, 2> means,
                                     ketra::Array<ushort4, 2> row_sums);

// Per pixel at label `label`: 1 - (NCC + 1) / 2 of the warped image against ref_img_tex over the
// (2R+1)^2 window, around the two window means. Only pixels with R + 1 <= x < W - R,
// R + 1 <= y < H - R and a valid warped mean take part; flat windows add nothing. ref_img is the
// array bound to ref_img_tex.
template <int BlockW, int BlockH, int R>
void add_matching_costs_NCC_kernel2(LaunchShape shape, ketra::Array<float, 4> costs,
                                    ketra::Array<uchar4, 2> ref_img, ketra::Array<float4, 2> ref_mean,
                                    ketra::Array<uchar4, 2> warped, ketra::Array<float4, 2> warped_mean, int label);

// --- Semi-global matching on costs C with extents (L, W, H). ---

// Cells that are not finite (infinity, not-a-number) become 1000, the cost of a cell without
// data. A lane group of PixelsPerGroup pixels per thread row, BlockRows rows per block.
template <int BlockRows, int PixelsPerGroup>
void sgm_fix_matching_costs2(LaunchShape shape, ketra::Array<float, 3> C);

// Adds the path costs of direction (dx, dy) to S. One walker per row (major axis x) or column
// (major axis y); a walker's 32 lanes over labels are one element here, so the launch's threads
// with thread.x = 0 run the walkers. The larger penalty comes from P2_tex when UseP2Map is set,
// else it is P2.
template <bool UseP2Map, int dx, int dy>
void sgm_path_kernel(LaunchShape shape, ketra::Array<float, 3> C, ketra::Array<float, 3> S, float P1, float P2,
                     device::stream_t stream);

// The label of smallest S per pixel (ties: lowest lane l mod 32, then lowest label in the lane),
// refined by the vertex of the parabola through its two neighbours where that lies in (0, L).
// BlockRows rows per block.
template <int BlockRows>
void sgm_extract_labels(LaunchShape shape, ketra::Array<float, 2> labels, ketra::Array<float, 3> S);

// --- Labels to depth and the axis rotation. ---

// In place: label -> 1 / (label * step + a).
template <bool InverseDepth>
device::Error convert_labels_to_depth_kernel(LaunchShape shape, ketra::Array<float, 2> labels, float a, float step);

// result[z, x, y] = input[x, y, z], ElementsPerThread elements per thread of a 32 x 1 x 4 block
// that moves one 32 x 32 tile of the (x, z) plane of one y.
template <int ElementsPerThread>
void shift_dims_kernel(LaunchShape shape, ketra::Array<float, 3> result, ketra::Array<float, 3> input);

// The same rule with one thread per input element.
void shift_dims_kernel_naive(LaunchShape shape, ketra::Array<float, 3> result, ketra::Array<float, 3> input);

}  // namespace depthmap_estimation_kernels

// The program-wide textures of the matching-cost kernels: the reference image (point sampled)
// and the other view (bilinear), channels as floats in 0..1. Bound by add_matching_costs and
// add_matching_costs2.
extern device::Texture<uchar4, device::ReadMode::NormalizedFloat> ref_img_tex;
extern device::Texture<uchar4, device::ReadMode::NormalizedFloat> img_tex;
// The per-pixel larger penalty of sgm, point sampled. Bound by sgm when it has a map.
extern device::Texture<float> P2_tex;
