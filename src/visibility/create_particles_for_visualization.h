#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// A copy of a particle set thinned to what the views see: a particle is kept when no visible
// point of its own view lies nearer to the camera at its own pixel, and takes the colour rendered
// there. Dumps the per-view images of the nearest distance to "/debug/min_camdistances.dat"
// under output_directory and prints the counts. A particle whose camera_index names none of the
// cameras throws "this should not happen". An empty set gives an empty copy.
void create_particles_for_visualization(std::vector<Particle>& out_particles, std::vector<float>& out_offsets,
                                        std::vector<float3>& out_normals, const std::vector<Particle>& particles,
                                        const std::vector<float>& offsets, const std::vector<float3>& normals,
                                        const std::vector<Camera*>& cameras);
