#pragma once

#include <utility>
#include <vector>

#include "device/vector_types.h"

// A superpixel of one view. Its place in the view's superpixel list is its identity: a particle
// made from it carries that place as its pixel_index.
struct Superpixel {
  std::vector<std::pair<int, int>> pixels;  // (x, y)
  uchar4 color;                             // mean colour, alpha 255
};
