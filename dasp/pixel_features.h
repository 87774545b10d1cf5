#pragma once

#include <vector>

#include "dasp/parameters.h"
#include "dasp/slimage.h"
#include "device/vector_types.h"

namespace dasp {

// What the clustering knows of each pixel, one array entry per pixel number.
struct PixelFeatures {
  unsigned width = 0;
  unsigned height = 0;
  std::vector<unsigned char> valid;  // 1 where the pixel has depth
  std::vector<float3> position;      // back-projected point (valid pixels only)
  std::vector<float3> normal;        // unit normal facing the camera (valid pixels only)
  std::vector<float3> color;         // RGB in 0..1
  std::vector<float> area;           // world area the pixel covers
  float mean_depth = 0.0f;           // mean world depth of the valid pixels, 1 if there are none
};

// Back-projects the depth image with the pinhole parameters, estimates normals from the depth
// gradient and the world area of each pixel. Pixels without depth get the area of a fronto-parallel
// pixel at the mean depth, so that they receive seeds with an image-space density.
PixelFeatures compute_pixel_features(const slimage::Image3ub& color, const slimage::Image1ui16& depth,
                                     const Parameters& parameters);

}  // namespace dasp
