#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/camera.h"
#include "src/superpixel.h"

// Cuts one view into depth-adaptive superpixels, about `count` of them, and replaces the content
// of `superpixels` with one entry per cluster: its pixels and its mean colour. The depth is
// normalised so that the average depth of the scene is 1000 steps.
void create_superpixels(std::vector<Superpixel>& superpixels, const CMatrix<float>& depth,
                        const CMatrix<uchar4>& image, const Camera& camera, float average_depth, int count);
