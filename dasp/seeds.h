#pragma once

#include <vector>

namespace dasp {

struct Seed {
  unsigned x;
  unsigned y;
};

// Places seeds with the given expected number per pixel (density, row-major, width * height).
// Walks a quadtree of density sums along a Hilbert curve and carries the fractional remainder from
// cell to cell, so the result is deterministic, holds round(sum of density) seeds (at most one per
// pixel) and spreads them evenly. Seeds are returned in curve order.
std::vector<Seed> place_seeds(const std::vector<float>& density, unsigned width, unsigned height);

}  // namespace dasp
