#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "tools/depth/view_geometry.h"

namespace depth_tool {

// How many other views' depth maps confirm each depth of view `reference`: a pixel (x, y) with
// depth d is carried to its world point and into view j, where it lands at (u, v); j's depth at
// the nearest pixel, carried back along the ray through (u, v), must land near (x, y) (within
// 0.004 focal lengths, at least one pixel) at a depth within d / fx (one pixel's size there, 1 %
// of d at most). Only the views listed in `others` are asked. Depth 0 means
// none, and counts 0. The counts saturate at 255.
CMatrix<unsigned char> agreeing_views(const std::vector<ViewGeometry>& views, const std::vector<CMatrix<float>>& depths,
                                      int reference, const std::vector<int>& others);

// The count as the 8-bit image written beside a depth map: 51 per agreeing view, white from 5 on,
// so that the levels can be told apart by eye and read back exactly.
CMatrix<unsigned char> agreement_image(const CMatrix<unsigned char>& counts);

}  // namespace depth_tool
