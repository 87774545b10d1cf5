#pragma once

#include <cmath>

#include "device/vector_math.h"

// Local frame of a ray with unit direction d: p across the ray, q = p x d. A normal is described by
// its azimuth phi and polar angle theta in this frame,
//   n = sin(theta) cos(phi) d + sin(theta) sin(phi) p + cos(theta) q,
// so the polar axis lies across the ray and a normal facing the camera sits at the equator.
struct RayFrame {
  float3 p;
  float3 q;
};

inline RayFrame ray_frame(float3 d) {
  const float ax = std::fabs(d.x), ay = std::fabs(d.y), az = std::fabs(d.z);
  float3 p;
  if (ay > ax && az > ax)
    p = {0.0f, -d.z, d.y};
  else if (ax > ay && az > ay)
    p = {-d.z, 0.0f, d.x};
  else
    p = {-d.y, d.x, 0.0f};
  const float inv = 1.0f / length(p);
  p = p * inv;
  return {p, cross(p, d)};
}

struct NormalAngles {
  float phi;
  float theta;
};

inline NormalAngles normal_angles(float3 n, float3 d, const RayFrame& frame) {
  return {std::atan2(dot(frame.p, n), dot(d, n)), std::acos(dot(frame.q, n))};
}

inline float3 normal_from_angles(float phi, float theta, float3 d, const RayFrame& frame) {
  const float st = std::sin(theta), ct = std::cos(theta), sp = std::sin(phi), cp = std::cos(phi);
  return (st * cp) * d + (st * sp) * frame.p + ct * frame.q;
}
