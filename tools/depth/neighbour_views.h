#pragma once

#include <vector>

#include "src/core/camera.h"

namespace depth_tool {

// The views that a cost volume of view `reference` compares against: at most `count` others,
// nearest by baseline first, among those whose optical axis lies within 60 degrees of the
// reference's (or `max_axis_degrees`) and whose baseline subtends at least 1 degree at `depth` (a
// typical scene depth of the reference). Indices into cameras, ties kept in view order.
std::vector<int> choose_neighbours(const std::vector<Camera>& cameras, int reference, int count, float depth,
                                   double max_axis_degrees = 60.0);

}  // namespace depth_tool
