#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "tools/depth/depth_arguments.h"

namespace depth_tool {

struct DepthEstimate {
  CMatrix<float> depth;  // per pixel of the reference image, 0 where there is none
  long pixels_with_depth = 0;
  long ambiguous = 0, weak = 0;  // pixels dropped for no distinct minimum, for too little texture
  double cost_seconds = 0, sgm_seconds = 0;
};

// Depth of every pixel of `reference` from its image and those of `neighbours` (all of the
// reference's size): a cost volume of options.labels depths from near to far (uniform in inverse
// depth) against each neighbour, semi-global matching with a penalty for larger label changes that
// drops across colour edges, labels to depth and a 3 x 3 median. A pixel keeps no depth where no
// neighbour saw it at the depth found, or where the best depth lies at either end of the range.
// texture: the reference's local spread in grey levels (see local_texture.h); a pixel below
// options.min_texture keeps no depth, nor one whose path costs have a second valley within
// options.max_ambiguity of the best (ratio of the best sum to the second).
DepthEstimate estimate_depthmap(const Camera& reference, const std::vector<const Camera*>& neighbours, float near,
                                float far, const CMatrix<float>& texture, const DepthOptions& options);

}  // namespace depth_tool
