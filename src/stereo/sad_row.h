#pragma once

#include "device/texture.h"
#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/stereo/sweep_geometry.h"

namespace depthmap_estimation_kernels {

// The single-pixel costs of pixels x0 .. x0 + n - 1 (n at most 32) of reference row y at labels
// first .. last - 1 (depth 1 / (a + l * step)), added into the volume (W, H, L, 2): the sum of the
// absolute RGB differences of `reference` at the pixel (point read) and `other` at its
// reprojection (bilinear read), and one view more in the count; a reprojection outside the other
// view adds nothing. The pixels of the row are computed side by side in vector lanes, each
// exactly as reproject and tex2D compute it, so every cell gets the bits of the one-pixel form.
void sad_row(ketra::Array<float, 4> const& costs, int x0, int n, int y, int first, int last, float a, float step,
             SweepCamera const& camera, device::Texture<uchar4, device::ReadMode::NormalizedFloat> const& reference,
             device::Texture<uchar4, device::ReadMode::NormalizedFloat> const& other);

}  // namespace depthmap_estimation_kernels
