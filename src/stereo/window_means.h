#pragma once

#include "device/vector_types.h"

namespace depthmap_estimation_kernels {

// The two passes of the separable window means, for the pixels x0 .. x0 + n - 1 of one row (n at
// most 32) at a time, each pixel getting exactly what the one-pixel rule gives it.

// row: the W pixels of an image row. out[k] = the sums of the 2R + 1 pixels centred on x0 + k,
// or (0, 0, 0, 0) when one of them lies outside the row or has alpha 0.
void window_row_sums(ushort4* out, const uchar4* row, int x0, int n, int W, int R);

// rows[i]: the row sums of row y - R + i from column x0 on (i = 0 .. 2R), all inside the image.
// out[k] = the window means (RGB in 0..1, alpha 1) of pixel x0 + k, each channel summed as
// sum * (1 / 255) row by row in order and multiplied by 1 / (2R + 1)^2; or (0, 0, 0, 0) when one
// of its rows has alpha sum 0.
void window_column_means(float4* out, const ushort4* const* rows, int n, int R);

}  // namespace depthmap_estimation_kernels
