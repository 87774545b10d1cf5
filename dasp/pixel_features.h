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

// Running sums over a cluster's pixels: the image position over all of them, the 3-D point and the
// normal over those with depth.
struct GeometrySums {
  double count = 0, x = 0, y = 0;
  double valid = 0, px = 0, py = 0, pz = 0, nx = 0, ny = 0, nz = 0;

  void add(const PixelFeatures& f, std::size_t i);
  // Mean 3-D point and unit mean normal of the pixels with depth (valid must be above 0). Opposed
  // normals can cancel; then the normal faces the camera.
  void surface(float3& position, float3& normal) const;
};

}  // namespace dasp
