#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"
#include "src/seed/superpixel.h"

// Draws the camera's own superpixel particles back into its image as planes: each covered pixel
// gets the depth of its particle's plane along the pixel ray (0 outside (min_depth, max_depth)
// or where not finite) and the particle's normal. Planes tilted by more than 70 degrees to the
// ray are not drawn. Both images get the camera's size; depth starts at 0 everywhere.
void particles_to_images(CMatrix<float>& depth, CMatrix<float3>& normal_map, const std::vector<Particle>& particles,
                         const std::vector<float>& offsets, const std::vector<float3>& normals,
                         const std::vector<Superpixel>& superpixels, const Camera& camera, float min_depth,
                         float max_depth);
