#include "src/core/radii.h"

#include <cmath>

float superpixel_radius(int width, int height, int count) {
  const int area = width * height;
  const float per_superpixel = static_cast<float>(area) / static_cast<float>(count);
  return static_cast<float>(std::sqrt(static_cast<double>(per_superpixel) / 3.141592653589793));
}

float pixel_radius(float k, float avg_depth, float fx) { return k * avg_depth / fx; }

RunRadii run_radii(float average_depth, float fx, float superpixel_radius) {
  RunRadii r;
  r.superpixel_filter = pixel_radius(superpixel_radius * 9.0f, average_depth, fx);
  r.superpixel = pixel_radius(superpixel_radius, average_depth, fx);
  r.pixel_filter = pixel_radius(5.0f, average_depth, fx);
  r.pixel = pixel_radius(1.0f, average_depth, fx);
  return r;
}
