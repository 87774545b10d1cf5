#include "src/core/camera.h"

#include <cmath>
#include <iostream>
#include <stdexcept>
#include <string>

#include "device/vector_math.h"
#include "image/CTensor.h"
#include "image/sample_conversion.h"

namespace {

// Planar float image to uchar4 pixels: planes 0 to 2 give x, y, z as the low byte of their
// truncation, plane 3 gives w when present and `alpha` fills it otherwise. This is the host
// rule of the toolkit's float-to-uchar4 conversion without normalisation.
CMatrix<uchar4> to_uchar4(const CTensor<float>& t, unsigned char alpha) {
  if ((t.zSize != 3 && t.zSize != 4) || t.xSize == 0 || t.ySize == 0)
    throw std::runtime_error("loadImage: expected an image with 3 or 4 planes and a non-zero size, got (" +
                             std::to_string(t.xSize) + ", " + std::to_string(t.ySize) + ", " +
                             std::to_string(t.zSize) + ")");
  CMatrix<uchar4> image(t.xSize, t.ySize);
  for (int y = 0; y < t.ySize; ++y)
    for (int x = 0; x < t.xSize; ++x)
      image(x, y) = make_uchar4(truncated_low_byte(t(x, y, 0)), truncated_low_byte(t(x, y, 1)),
                                truncated_low_byte(t(x, y, 2)),
                                t.zSize == 4 ? truncated_low_byte(t(x, y, 3)) : alpha);
  return image;
}

float3 center_of(const Camera& c) { return make_float3(c.center[0], c.center[1], c.center[2]); }

}  // namespace

CMatrix<uchar4> loadImage(const std::string& filename) {
  CTensor<float> t;
  t.readFromImage(filename.c_str());
  return to_uchar4(t, 255);
}

void Camera::loadImage() {
  if (image.xSize * image.ySize == 0) image = ::loadImage(image_filename);
  if (image.xSize == width && image.ySize == height) return;
  // The image decides the size; the intrinsics follow it, the mirrored cx, cy as they stand.
  const float sx = static_cast<float>(image.xSize) / static_cast<float>(width);
  const float sy = static_cast<float>(image.ySize) / static_cast<float>(height);
  width = image.xSize;
  height = image.ySize;
  K[0] *= sx;
  K[6] *= sx;
  K[4] *= sy;
  K[7] *= sy;
}

void estimate_keyframe_depth_range(Camera& c) {
  if (c.neighbours.empty()) return;
  const float3 center = center_of(c);
  float mean = 0.0f;
  for (const Camera* n : c.neighbours) mean += length(center - center_of(*n));
  mean /= static_cast<float>(c.neighbours.size());

  const float3 axis = make_float3(c.R[2], c.R[5], c.R[8]);  // third row of R
  float step = mean;
  float d = mean;
  while (step > 0.001f) {
    const float3 p = center + d * axis;
    int count = 0;
    for (const Camera* n : c.neighbours) {
      const float3 v = p - center_of(*n);
      const float cosine = dot(v, axis) / length(v);
      if (cosine > 0.0f && cosine < 0.9999939f) ++count;
    }
    if (count >= 3) {
      if (d + step == d) break;  // p can no longer move, so the count would never change
      d += step;
    } else {
      d -= step;
      step /= 2.0f;
      d += step;
    }
  }
  c.max_depth = d;
  c.min_depth = 3.0f * mean;
  std::cout << " max_depth = " << d << "  min_depth = " << 3.0f * mean << std::endl;
}
