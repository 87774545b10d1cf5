#pragma once

#include <string>
#include <vector>

#include "src/core/camera.h"

// Views that look the same way: the ones whose optical axes lie within 60 degrees of each other,
// which is where two views can see the same surface from sides close enough to compare.

// The views other than `view` whose optical axes lie within 60 degrees of its own, nearest first.
std::vector<int> views_facing_alike(std::vector<Camera*> const& cameras, std::size_t view);

// Camera alignment needs views that overlap: empty when at least one view has three such views,
// else the reason as one line naming --improve-cameras.
std::string overlap_problem(std::vector<Camera*> const& cameras);
