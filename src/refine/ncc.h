#pragma once

#include "device/vector_types.h"
#include "ketra/array.h"

// Per pixel, how well the warped image agrees with the reference over a window of radius
// window_radius (1, 2 or 3) restricted to pixels whose depth lies less than depth_tolerance from
// the centre's and where the warped alpha marks a valid pixel. Values in [-1, 1]; NaN where a
// pixel has no score. All four arrays are device arrays of one size. Binds the program-wide
// textures image1_tex and image2_tex, so it must not run concurrently with itself. Throws
// std::runtime_error for another window radius or for arrays of different sizes.
void ncc(ketra::Array<float, 2>& result, ketra::Array<uchar4, 2> const& reference,
         ketra::Array<uchar4, 2> const& warped, ketra::Array<float, 2> const& depth, float depth_tolerance,
         int window_radius);
