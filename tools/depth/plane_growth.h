#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"

namespace depth_tool {

struct GrowthSettings {
  int radius = 3;            // window of (2 radius + 1)^2 pixels
  int passes = 16;           // each pass grows the depths by one pixel at most
  double min_score = 0.7;    // mean correlation a grown depth's window needs with the neighbours
  float min_texture = 3.0f;  // local spread (grey levels) a pixel needs to be grown into
  float near = 0, far = 0;   // grown depths stay inside the range swept
  float label_step = 0;      // one label step in inverse depth, the plane fit's tolerance scale
};

// Grows the depth map (0 = none) into pixels without a depth: each pass offers an empty pixel the
// inverse-depth planes fitted around its eight neighbours' depths, and it takes the plane whose
// slanted window agrees best with the neighbours' images, when that window's mean correlation
// reaches min_score. Matching thus continues across pixels that the cost volume could not decide,
// along the surfaces it did decide. Returns the number of depths grown.
long grow_on_slanted_windows(CMatrix<float>& depth, const Camera& reference,
                             const std::vector<const Camera*>& neighbours, const CMatrix<float>& texture,
                             const GrowthSettings& settings);

}  // namespace depth_tool
