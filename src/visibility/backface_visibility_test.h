#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// Counts, per particle, the views in which it floats more than `tolerance` in front of the
// rendered surface while showing that view its back. counts is resized to the set's size (new
// entries 0) and added to; threshold_particles<int> turns the counts into removal. An empty set
// leaves counts empty and renders nothing.
void backface_visibility_test(std::vector<int>& counts, const std::vector<Particle>& particles,
                              const std::vector<float>& offsets, const std::vector<float3>& normals,
                              const std::vector<Camera*>& cameras, float tolerance);
