#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"
#include "src/seed/superpixel.h"

// Appends one particle per superpixel with enough valid measured depth (at least 80 % of its
// pixels): a robust plane fit of its back-projected pixels gives the ray origin and the initial
// normal. With a non-empty normal map and target depth, the normal is the mean of the map over
// the covered pixels and the offset moves the particle onto the plane of the target depth.
// The append order follows thread timing; pixel_index (the superpixel's place) and
// camera_index identify each particle.
void create_particles_from_superpixels(std::vector<Particle>& particles, std::vector<float>& offsets,
                                       std::vector<float3>& normals, const std::vector<Superpixel>& superpixels,
                                       const CMatrix<float>& target_depth, const CMatrix<float3>& normal_map,
                                       const CMatrix<float>& measured_depth, const Camera& camera);
