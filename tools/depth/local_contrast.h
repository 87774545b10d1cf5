#pragma once

#include "device/vector_types.h"
#include "image/CMatrix.h"

namespace depth_tool {

// An image as the matching compares it, and how much texture it has. Views of one scene taken
// with different gain and offset differ in every colour; around each pixel, the colours less
// their window mean, over the window's spread, do not.
struct LocalContrast {
  CMatrix<uchar4> image;   // 128 + 32 (c - mean) / (deviation + floor) per channel, clamped; alpha 255
  CMatrix<float> texture;  // the window's standard deviation, mean of R, G and B, in grey levels
};

// Over windows of (2 radius + 1)^2 pixels, clamped at the image's border; floor in grey levels
// keeps flat regions flat instead of blowing their noise up to full contrast.
LocalContrast local_contrast(const CMatrix<uchar4>& image, int radius, float floor);

}  // namespace depth_tool
