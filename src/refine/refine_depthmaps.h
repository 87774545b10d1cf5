#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"

// Improves the depth map of every view by photo-consistency with its neighbours (views whose
// optical axes lie within 60 degrees). For each view it tries the offsets of refinement_offsets
// along the viewing ray, warps each neighbour onto the shifted surface, scores the warp against
// the view's image with ncc (window radius 3, depth window radius) and moves every pixel to the
// best-scoring offset.
//
// rendered_depthmaps[i] is the depth map of camera_ptrs[i], of its image's size after
// Camera::loadImage, which runs on every view first; a pixel without depth holds 0. radius is in
// scene units. On return, in view order: improved_depthmaps[i] is rendered_depthmaps[i] plus the
// chosen offset at every pixel (-radius where no offset was scored by at least 3 neighbours, also
// at pixels without depth); particle_depthmaps[i] is rendered_depthmaps[i] where the pixel's score
// passes the view's threshold, 0 elsewhere. Prints its progress on standard output.
//
// Throws std::runtime_error, before any output is touched, when the two input vectors differ in
// length or a depth map differs in size from its view's image.
void refine_depthmaps(std::vector<CMatrix<float>>& improved_depthmaps, std::vector<CMatrix<float>>& particle_depthmaps,
                      std::vector<CMatrix<float>> const& rendered_depthmaps, std::vector<Camera*> const& camera_ptrs,
                      float radius);
