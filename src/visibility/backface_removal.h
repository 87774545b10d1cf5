#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// With --backface-test: prints "removing invalid backface points", counts per particle the views
// to which it shows its back while floating more than `tolerance` in front of the rendered
// surface, and removes the particles that offend in more than max_views views.
void remove_backfacing_particles(std::vector<Particle>& particles, std::vector<float>& offsets,
                                 std::vector<float3>& normals, const std::vector<Camera*>& cameras, float tolerance,
                                 int max_views);
