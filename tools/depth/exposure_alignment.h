#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "tools/depth/depth_arguments.h"

namespace depth_tool {

// How one view's colours relate to another's where both see the same surface: per channel,
// other = gain * reference + offset. Photographs of one scene differ so with exposure and black
// level.
struct ColourMap {
  double gain[3] = {1, 1, 1};
  double offset[3] = {0, 0, 0};
  long pairs = 0;  // colour pairs the fit kept
};

// The least-squares line per channel through colour pairs (reference, other), refitted a few
// times without the pairs far off it, so that wrong correspondences do not pull it. Too few pairs
// or an implausible gain give the identity map.
ColourMap fit_colour_map(const std::vector<uchar4>& reference, const std::vector<uchar4>& other);

// The other view's image in the reference's exposure: (colour - offset) / gain, rounded, clamped.
CMatrix<uchar4> to_reference_exposure(const CMatrix<uchar4>& other, const ColourMap& map);

// The map of every neighbour to the reference, from a coarse match at half size with the
// correlation costs, which exposure does not change: the colours at the pixels it is sure of.
std::vector<ColourMap> align_exposures(const Camera& reference, const std::vector<const Camera*>& neighbours,
                                       float near, float far, const DepthOptions& options);

}  // namespace depth_tool
