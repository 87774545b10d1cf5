#pragma once

#include "device/vector_types.h"
#include "ketra/array.h"

// The coarse-to-fine image pyramid of the pose alignment.

// Index of the coarsest level: floor(log(min_height / height) / log(pyramid_factor)) in float.
// Negative when the image is already lower than min_height: then no level runs.
int pyramid_levels(int height, int min_height, float pyramid_factor);

// Size of level L: the image scaled by pyramid_factor^L, rounded to whole pixels.
struct PyramidLevel {
  float scale;
  unsigned int width, height;
};
PyramidLevel pyramid_level(int width, int height, float pyramid_factor, int level);

// A new pitched device copy of image shrunk to the level's size by the toolkit's tent filter;
// the caller frees it.
ketra::Array<uchar4, 2> level_image(ketra::Array<uchar4, 2> const& image, PyramidLevel const& level);

// Central differences of the three planes of image, mirrored at the borders: planes 0 to 2 of
// gradients along x, planes 3 to 5 along y.
void image_gradients(ketra::Array<float, 3>& gradients, ketra::Array<float, 3> const& image);
