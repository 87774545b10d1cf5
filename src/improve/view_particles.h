#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/camera.h"
#include "src/core/particle.h"
#include "src/render/points.h"

// The particles of a model as the views that made them: each particle is a measurement of one view,
// fixed in that view's frame.

// The model without the particles of view `view`, on the device; empty (no data) when nothing is left.
Points points_without_view(std::vector<Particle> const& particles, std::vector<float> const& offsets,
                           std::vector<float3> const& normals, int view);

// The particles of view `view` at their measured depths (offset 0), on the device: what the view
// measured, placed with its pose; empty (no data) when the view has none.
Points measured_points_of_view(std::vector<Particle> const& particles, std::vector<float3> const& normals, int view);

// Carries the particles of view `view` along with its camera, from pose `before` to `after`: ray
// origins, directions and normals turn and move with it; offsets along the rays stay.
void move_particles_of_view(std::vector<Particle>& particles, std::vector<float3>& normals, int view,
                            Camera const& before, Camera const& after);

// Carries the particles of every view along with its camera, from the poses `before` (one per
// camera, in the order of `cameras`) to the cameras as they stand.
void move_particles_with_cameras(std::vector<Particle>& particles, std::vector<float3>& normals,
                                 std::vector<Camera> const& before, std::vector<Camera*> const& cameras);

// Frees points unless they are empty.
void free_points_if_any(Points& points);
