#pragma once

#include "device/texture.h"
#include "device/vector_types.h"
#include "src/stereo/sweep_geometry.h"

namespace depthmap_estimation_kernels {

// Pixels x0 .. x0 + n - 1 (n at most 32) of row y of the other view warped into a W x H reference
// at depth d: for each, the bilinear RGB of `image` at the reprojection, rounded to bytes, alpha
// 255; or (0, 0, 0, 0) where the reprojection leaves the image or the scale
// d / fx * fx_scale / w lies outside [0.5, 2]. out[k] receives pixel x0 + k. The reprojections of
// the row are computed side by side in vector lanes, each exactly as reproject computes it.
void warp_row(uchar4* out, int x0, int n, int y, float d, int W, int H, SweepCamera const& camera, float fx_scale,
              device::Texture<uchar4, device::ReadMode::NormalizedFloat> const& image);

}  // namespace depthmap_estimation_kernels
