#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"

namespace depth_tool {

struct PropagationSettings {
  int radius = 3;           // window of (2 radius + 1)^2 pixels
  int passes = 4;           // each pass offers every depth the planes of the pass before
  int reach = 8;            // planes come from the four pixels next to a pixel and the four this far away
  float near = 0, far = 0;  // depths stay inside the range swept
  float label_step = 0;     // one label step in inverse depth, the plane fit's tolerance scale
};

// Offers every pixel with a depth (0 = none) the inverse-depth planes fitted around nearby
// pixels, moved to it, and replaces its depth by that of the plane whose slanted window agrees
// best with the neighbours' images, when that window agrees better than the pixel's own depth on
// its own fitted slant. A wrong patch of the matching thus gives way, pass by pass, to the
// surface around it. After the first pass, only pixels near a depth that moved by more than a
// quarter label are offered planes again. Returns the number of such moves, all passes together.
long propagate_planes(CMatrix<float>& depth, const Camera& reference, const std::vector<const Camera*>& neighbours,
                      const PropagationSettings& settings);

}  // namespace depth_tool
