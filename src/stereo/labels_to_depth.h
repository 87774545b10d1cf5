#pragma once

#include "device/error.h"
#include "ketra/array.h"
#include "ketra/filtering.h"

// Small operators around semi-global matching: labels to depth, the 3 x 3 median, and the axis
// rotation that gives sgm its working layout.

// In place on a device array: each label becomes the depth 1 / (label * step + a), a and step of
// the inverse-depth labels from depth_first (label 0) to depth_last (label num_labels - 1).
// Fractional labels fall between their neighbours' depths on the inverse-depth scale. Returns the
// launch status.
device::Error convert_labels_to_depth(ketra::Array<float, 2>& labels, int num_labels, float depth_first,
                                      float depth_last);

// The median of each pixel's 3 x 3 neighbourhood, coordinates clamped to the image: the
// toolkit's filter serves the depth chain as it is.
using ketra::median3x3;

// result[z, x, y] = input[x, y, z] for input extents (X, Y, Z) and result extents (Z, X, Y), both
// device arrays. Throws std::runtime_error "shift_dims: dimensions wrong!" before any work when
// the extents do not match so.
void shift_dims(ketra::Array<float, 3>& result, ketra::Array<float, 3> const& input);

// Self-test of shift_dims on a (160, 120, 32) array of distinct values; throws
// std::runtime_error "test_shift_dims failed" on any mismatch.
void test_shift_dims();
