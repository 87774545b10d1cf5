#pragma once

#include "src/core/camera.h"

// A pinhole camera as kernels receive it, by value. A point p maps to the camera frame as
// c = R p + t and to the image as u = (c.x*fx)/c.z + cx, v = (c.y*fy)/c.z + cy; its depth is c.z.
// Points with c.z <= near or c.z >= far are dropped.
struct Projection {
  int width, height;  // target image size in pixels
  float fx, fy;
  float cx, cy;
  float R[9];  // row by row
  float t[3];
  float near, far;
};

// A 3x4 matrix, row by row, in one 16-byte aligned block: the projection of the matching-cost
// kernels.
struct alignas(16) ProjectionMatrix {
  float m[12];
};

// The projection of a camera into a target of width x height pixels: the intrinsics scaled by
// width / camera.width and height / camera.height, the camera's world-to-camera pose.
Projection projection_from_camera(const Camera& camera, int width, int height, float near, float far);
