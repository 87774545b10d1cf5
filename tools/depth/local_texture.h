#pragma once

#include "device/vector_types.h"
#include "image/CMatrix.h"

namespace depth_tool {

// How much texture each pixel has to match with: the standard deviation of the colours over a
// window of (2 radius + 1)^2 pixels around it (clamped at the image's border), the mean of R, G and
// B, in grey levels. Flat regions, such as a dark background, have next to none.
CMatrix<float> local_texture(const CMatrix<uchar4>& image, int radius);

}  // namespace depth_tool
