#pragma once

#include <vector>

#include "device/vector_types.h"

struct Camera;

// Plane through a point list, fitted three times with weights that fall with the distance from
// the previous plane, so that outliers lose their pull. The normal faces the camera centre; with
// fewer than 3 points the plane passes through the first point and faces the centre (the normal
// is then not normalised). `points` must not be empty.
void robust_plane_fit(const std::vector<float3>& points, const Camera& camera, float3& c, float3& n);
