#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "tools/depth/slanted_window.h"

namespace depth_tool {

// What the steps that score slanted windows need of a reference view: its geometry, its grey
// image and the spread of its own 3 x 3 pixels, each neighbour as seen from it, and the inverse
// depths of the range swept.
struct MatchingFrame {
  ViewGeometry geometry;
  Grey grey;
  CMatrix<float> fine_texture;
  std::vector<WindowPair> pairs;
  double w_low = 0, w_high = 0;
};

MatchingFrame matching_frame(const Camera& reference, const std::vector<const Camera*>& neighbours, float near,
                             float far);

}  // namespace depth_tool
