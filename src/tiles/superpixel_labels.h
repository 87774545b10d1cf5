#pragma once

#include <cstdint>
#include <vector>

#include "src/seed/superpixel.h"

// A view's cut into superpixels kept compactly between the superpixel level and the fine level:
// the superpixel of every pixel in row order, as runs. A pixel in no superpixel has kNoSuperpixel.
struct SuperpixelLabels {
  static constexpr std::uint32_t kNoSuperpixel = 0xFFFFFFFFu;
  int width = 0, height = 0;
  std::uint32_t count = 0;            // superpixels in the view, empty ones included
  std::vector<std::uint32_t> runs;    // pairs (superpixel, run length)
};

SuperpixelLabels label_superpixels(const std::vector<Superpixel>& superpixels, int width, int height);

// The superpixels back, each with its pixels in row order (colours are not kept).
std::vector<Superpixel> superpixels_from_labels(const SuperpixelLabels& labels);
