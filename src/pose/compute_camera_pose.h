#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// Direct image alignment of a camera whose pose is roughly known: photometric Gauss-Newton in
// six parameters over a coarse-to-fine pyramid (levels scaled by pyramid_factor down to about
// min_height rows), where a synthetic view and its depth are rendered from the current pose
// before each round of five steps. A level ends after 50 rounds or when a round's update is
// below 1e-5 rad and 1e-4 world units. The camera's R, t and centre are updated in place; an
// image lower than min_height leaves it as it is. Needs the device BLAS loaded (cublas.load()).
// With debug_images_camera_pose set, the renderings go to "rendered_color_<level>_<round>.png"
// in the working directory.

// Against the particle model, cut to the particles that reach the camera's view. `ignored` goes
// to the renderer. With the debug flag, also "valid_pixels_<level>_<round>.png".
void compute_camera_pose(Camera& camera, std::vector<Particle> const& particles, std::vector<float> const& offsets,
                         std::vector<float3> const& normals, float ignored, float pyramid_factor, int min_height);

// Against the depth map and image of a reference camera, warped into the camera.
void compute_camera_pose(Camera& camera, Camera const& reference, CMatrix<float> const& reference_depth,
                         float pyramid_factor, int min_height);
