#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "tools/depth/view_geometry.h"

namespace depth_tool {

// What the other views' depth maps say about each depth of one view. Both counts saturate at 255
// and are 0 where the view has no depth.
struct DepthVerdicts {
  // Views whose maps confirm the depth: a pixel (x, y) with depth d is carried to its world point
  // and into view j, where it lands at (u, v); j's depth at the nearest pixel, carried back along
  // the ray through (u, v), must land near (x, y) (within 0.004 focal lengths, at least one pixel)
  // at a depth within d / fx (one pixel's size there, 1 % of d at most), and where both maps give
  // the surface a normal (from the depths two pixels around), the two lie within
  // `most_normal_degrees`.
  CMatrix<unsigned char> agreeing;
  // Views that could see the point, the agreeing ones among them: it lands inside j's image, the
  // surface faces j (its normal within `most_turn_degrees` of the direction to j; where the depths
  // around give no normal, it counts as facing), and j's map holds nothing clearly nearer there
  // (no depth at all counts as seeing: an empty map is what a floating wrong depth meets).
  CMatrix<unsigned char> seeing;
};

struct VerdictSettings {
  double most_turn_degrees = 45.0;    // a surface turned farther from a view is not expected to be confirmed by it
  double most_normal_degrees = 45.0;  // normals farther apart do not confirm each other
  double hidden_share = 0.01;         // a depth this share nearer than the point hides it
};

// The verdicts of the views listed in `others` on the depths of view `reference`.
DepthVerdicts judge_depths(const std::vector<ViewGeometry>& views, const std::vector<CMatrix<float>>& depths,
                           int reference, const std::vector<int>& others, const VerdictSettings& settings = {});

// Whether a depth stays: confirmed by `wanted` other views, or by all that could see it when
// fewer could (but by one at least), so that a surface only two views see can stay; 0 keeps all.
inline bool confirmed_enough(int agreeing, int seeing, int wanted) {
  if (wanted <= 0) return true;
  const int needed = seeing < wanted ? seeing : wanted;
  return agreeing >= (needed < 1 ? 1 : needed);
}

// The count as the 8-bit image written beside a depth map: 51 per agreeing view, white from 5 on,
// so that the levels can be told apart by eye and read back exactly.
CMatrix<unsigned char> agreement_image(const CMatrix<unsigned char>& counts);

}  // namespace depth_tool
