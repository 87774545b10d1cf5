#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// A depth is usable if it is finite, positive and strictly between min_depth and max_depth.
bool usable_depth(float d, float min_depth, float max_depth);

// Appends one particle per pixel whose initial depth is usable to the three parallel arrays,
// row by row. The ray origin is the back-projected measured depth (the initial depth where the
// measurement is unusable, marking the particle no_measurement), the offset places the particle
// at the initial depth along its ray. All four images have the size of initial_depth.
void create_particles_from_depthmap(std::vector<Particle>& particles, std::vector<float>& offsets,
                                    std::vector<float3>& normals, const CMatrix<float>& initial_depth,
                                    const CMatrix<float3>& normal_map, const CMatrix<float>& measured_depth,
                                    const CMatrix<uchar4>& image, const Camera& camera, float min_depth,
                                    float max_depth);
