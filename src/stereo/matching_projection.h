#pragma once

#include "src/core/camera.h"
#include "src/render/projection.h"

// The P of the matching-cost kernels for a pair of views: reference camera coordinates to
// homogeneous pixel coordinates (mirrored principal point) of the other view, K_other times the
// relative pose. Throws std::runtime_error when the reference pose cannot be inverted.
ProjectionMatrix matching_projection(Camera const& reference, Camera const& other);
