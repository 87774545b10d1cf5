#pragma once

#include "image/CMatrix.h"
#include "tools/depth/view_geometry.h"

namespace depth_tool {

// The depths that view `source`'s map gives the pixels of view `target`: each depth carried to its
// world point and into the target, the nearest kept where several land on one pixel; 0 = none.
CMatrix<float> transferred_depths(const ViewGeometry& target, const ViewGeometry& source,
                                  const CMatrix<float>& source_depth);

}  // namespace depth_tool
