#pragma once

#include "device/host_device.h"
#include "src/render/projection.h"

// The reprojection that every matching-cost kernel shares: a reference pixel at a hypothesised
// depth, carried into the other view by P. All in 32-bit float, in the order written.
namespace depthmap_estimation_kernels {

// The reference camera as the kernels receive it: reciprocal focal lengths, the mirrored
// principal point, and the projection into the other view.
struct SweepCamera {
  float inv_fx, inv_fy, cx, cy;
  ProjectionMatrix P;
};

// A projected position and the third homogeneous coordinate (the depth in the other view).
struct Reprojection {
  float px, py, w;
};

// Depth of label l: uniform in inverse depth (1 / (a + l * step)) or in depth (a + l * step).
template <bool InverseDepth>
HOST_DEVICE inline float label_depth(float a, float step, int l) {
  const float v = a + static_cast<float>(l) * step;
  return InverseDepth ? 1.0f / v : v;
}

// Pixel (x, y) of a W x H reference at depth d, projected into the other view. w is not tested
// for sign.
HOST_DEVICE inline Reprojection reproject(int x, int y, float d, int W, int H, SweepCamera const& c) {
  const float X = (static_cast<float>(W - 1 - x) - c.cx) * c.inv_fx * d;
  const float Y = (static_cast<float>(H - 1 - y) - c.cy) * c.inv_fy * d;
  const float Z = d;
  const float* m = c.P.m;
  const float u = m[0] * X + m[1] * Y + m[2] * Z + m[3];
  const float v = m[4] * X + m[5] * Y + m[6] * Z + m[7];
  const float w = m[8] * X + m[9] * Y + m[10] * Z + m[11];
  return {u / w, v / w, w};
}

// Inside the other view of the same size, both bounds inclusive; false for not-a-number.
HOST_DEVICE inline bool inside(Reprojection const& r, int W, int H) {
  return r.px >= 0.0f && r.px <= static_cast<float>(W - 1) && r.py >= 0.0f && r.py <= static_cast<float>(H - 1);
}

}  // namespace depthmap_estimation_kernels
