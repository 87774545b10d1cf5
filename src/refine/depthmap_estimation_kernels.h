#pragma once

#include "device/texture.h"
#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/render/render_depthmaps_kernels.h"

// Device code of the photo-consistency score and the edge maps. A kernel is called with its launch
// shape first and runs its per-element body over every thread of that shape; threads beyond the
// extents of the array they write return at once. Launch errors are left for the caller's
// _CHECK_CUDA_ERROR.
namespace depthmap_estimation_kernels {

using render_depthmaps_kernels::LaunchShape;

// Weighted correlation of image1_tex (reference) and image2_tex (warped) over the (2R+1)^2 window
// of every pixel, restricted to window pixels whose depth lies less than depth_tolerance from the
// centre's and whose warped alpha is at least 0.5. NaN where a pixel has no score: within R of
// the border, without a valid depth, with too few window pixels, or with flat windows.
template <int R>
void ncc_kernel(LaunchShape shape, ketra::Array<float, 2> result, ketra::Array<float, 2> depth,
                float depth_tolerance);

// The RGB distance (bytes / 255) of each pixel of image to its right neighbour (kernel x, stored)
// and to the one below (kernel y, added); 0 across the last column and row.
void compute_edge_map_kernel_x(LaunchShape shape, ketra::Array<float, 2> edges, ketra::Array<uchar4, 2> image);
void compute_edge_map_kernel_y(LaunchShape shape, ketra::Array<float, 2> edges, ketra::Array<uchar4, 2> image);

// In place: map = max(P2_min, P2_max * exp(-decay * map^exponent)).
void compute_P2_costs_kernel(LaunchShape shape, ketra::Array<float, 2> map, float P2_min, float decay, float exponent,
                             float P2_max);

}  // namespace depthmap_estimation_kernels

// The program-wide textures of ncc_kernel: the reference and the warped image, point sampled,
// channels as floats in 0..1. Bound by ncc.
extern device::Texture<uchar4, device::ReadMode::NormalizedFloat> image1_tex;
extern device::Texture<uchar4, device::ReadMode::NormalizedFloat> image2_tex;
