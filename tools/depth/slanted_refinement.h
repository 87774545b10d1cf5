#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"

namespace depth_tool {

struct RefinementSettings {
  int radius = 3;              // window of (2 radius + 1)^2 pixels
  float range = 1.5f;          // depths tried: the plane moved by up to this many label steps either way
  int steps = 7;               // depths tried, evenly over the range
  float label_step = 0.0f;     // one label step in inverse depth (of the sweep that made the depths)
};

struct RefinementStatistics {
  long refined = 0;     // pixels moved to the best depth of their window
  long unmatched = 0;   // pixels dropped: flat window, no neighbour sees it, or best depth at the range's end
};

// Moves every depth (0 = none) of the reference to where its window, laid on the plane that the
// surrounding depths describe, agrees best with the neighbours' images (normalised
// cross-correlation of grey values, averaged over the neighbours that see the whole window).
// Planes are fitted in inverse depth, which is linear across the image on a planar surface, so
// windows on slanted surfaces cover the same surface patch in every view. score, when given,
// receives the best mean correlation per pixel (0 where there is no depth).
RefinementStatistics refine_on_slanted_windows(CMatrix<float>& depth, const Camera& reference,
                                               const std::vector<const Camera*>& neighbours,
                                               const RefinementSettings& settings, CMatrix<float>* score);

}  // namespace depth_tool
