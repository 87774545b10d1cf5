#pragma once

#include <vector>

#include "dasp/parameters.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/seed/superpixel.h"

// Settings handed to the superpixel layer for a view: its pinhole in image coordinates, depth steps
// of 0.001 (the depth is normalised to 1000 steps at the average depth), weights 4, 2, 1 for
// position, colour and normal, 10 rounds, base radius 0.018 and the wanted count.
dasp::Parameters superpixel_parameters(const Camera& camera, int count);

// Cuts one view into depth-adaptive superpixels, about `count` of them, and replaces the content
// of `superpixels` with one entry per cluster: its pixels and its mean colour. The depth is
// normalised so that the average depth of the scene is 1000 steps.
void create_superpixels(std::vector<Superpixel>& superpixels, const CMatrix<float>& depth,
                        const CMatrix<uchar4>& image, const Camera& camera, float average_depth, int count);
