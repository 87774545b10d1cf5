#pragma once

#include "device/vector_types.h"
#include "src/core/camera.h"

// World point of array pixel (x, y) at depth z. The pixel index is mirrored in both axes, as
// the mirrored principal point in K expects; inv_fx, inv_fy are 1 / K[0], 1 / K[4].
inline float3 back_project(int x, int y, float z, int width, int height, const Camera& camera, float inv_fx, float inv_fy) {
  const float u = static_cast<float>(width - 1 - x);
  const float v = static_cast<float>(height - 1 - y);
  const float3 p = make_float3((u - camera.K[6]) * inv_fx * z - camera.t[0],
                               (v - camera.K[7]) * inv_fy * z - camera.t[1], z - camera.t[2]);
  const float* R = camera.R;
  return make_float3(R[0] * p.x + R[1] * p.y + R[2] * p.z, R[3] * p.x + R[4] * p.y + R[5] * p.z,
                     R[6] * p.x + R[7] * p.y + R[8] * p.z);
}
