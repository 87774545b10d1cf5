#include "src/render/projection.h"

Projection projection_from_camera(const Camera& camera, int width, int height, float near, float far) {
  const float sx = static_cast<float>(width) / static_cast<float>(camera.width);
  const float sy = static_cast<float>(height) / static_cast<float>(camera.height);
  Projection p;
  p.width = width;
  p.height = height;
  // Camera keeps K and R by columns: element (r, c) at [3 * c + r].
  p.fx = camera.K[0] * sx;
  p.fy = camera.K[4] * sy;
  p.cx = camera.K[6] * sx;
  p.cy = camera.K[7] * sy;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) p.R[3 * r + c] = camera.R[3 * c + r];
  for (int r = 0; r < 3; ++r) p.t[r] = camera.t[r];
  p.near = near;
  p.far = far;
  return p;
}
