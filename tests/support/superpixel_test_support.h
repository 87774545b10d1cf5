#pragma once

// Shared helpers of the superpixel tests: a camera with a turned pose and wide rays, analytic
// planes seen through it, and rectangular superpixels.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "device/vector_math.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"
#include "src/seed/superpixel.h"
#include "tests/support/particle_cloud.h"

namespace sp_test {

struct D3 {
  double x, y, z;
};
inline double dot(D3 a, D3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
inline D3 to_d3(float3 v) { return {v.x, v.y, v.z}; }
inline D3 unit(D3 v) {
  const double l = std::sqrt(dot(v, v));
  return {v.x / l, v.y / l, v.z / l};
}

// fx 40, fy 42 (rays fan out by several degrees per pixel), principal point (cx, cy) = (7.3, 5.6)
// as a view file gives it (K holds it mirrored), rotation with rows (0 0 1), (1 0 0), (0 1 0) and
// translation (0.5, -1, 2), so the centre is (1, -2, -0.5) and the camera looks along world +y.
inline Camera turned_camera(int width, int height, int index = 0) {
  Camera c;
  c.index = index;
  c.width = width;
  c.height = height;
  c.K[0] = 40.0f;
  c.K[4] = 42.0f;
  c.K[8] = 1.0f;
  c.K[6] = static_cast<float>(width - 1) - 7.3f;
  c.K[7] = static_cast<float>(height - 1) - 5.6f;
  c.R[1] = c.R[5] = c.R[6] = 1.0f;  // stored by columns
  c.t[0] = 0.5f;
  c.t[1] = -1.0f;
  c.t[2] = 2.0f;
  c.center[0] = 1.0f;
  c.center[1] = -2.0f;
  c.center[2] = -0.5f;
  return c;
}

inline D3 center_of(const Camera& c) { return {c.center[0], c.center[1], c.center[2]}; }

// World direction of the ray through array pixel (x, y), scaled to camera depth 1: the camera
// point ((cx - x) / fx, (cy - y) / fy, 1) with cx, cy as in the view file, turned by R^T.
inline D3 pixel_ray(const Camera& c, int x, int y) {
  const double cam[3] = {(c.width - 1.0 - x - c.K[6]) / c.K[0], (c.height - 1.0 - y - c.K[7]) / c.K[4], 1.0};
  return {c.R[0] * cam[0] + c.R[1] * cam[1] + c.R[2] * cam[2], c.R[3] * cam[0] + c.R[4] * cam[1] + c.R[5] * cam[2],
          c.R[6] * cam[0] + c.R[7] * cam[1] + c.R[8] * cam[2]};
}

// The plane dot(n, X) = d, n a unit vector.
struct Plane {
  D3 n;
  double d;
  double distance(float3 p) const { return dot(n, to_d3(p)) - d; }
};

// A plane through the point at depth `depth` on the optical axis, with normal n (made unit).
inline Plane plane_at(const Camera& c, D3 n, double depth) {
  n = unit(n);
  const D3 C = center_of(c);
  const D3 p = {C.x, C.y + depth, C.z};  // the camera looks along world +y
  return {n, dot(n, p)};
}

// Camera depth at which the ray of pixel (x, y) meets the plane.
inline double plane_depth(const Camera& c, const Plane& plane, int x, int y) {
  return (plane.d - dot(plane.n, center_of(c))) / dot(plane.n, pixel_ray(c, x, y));
}

inline CMatrix<float> plane_depth_map(const Camera& c, const Plane& plane) {
  CMatrix<float> depth(c.width, c.height);
  for (int y = 0; y < c.height; ++y)
    for (int x = 0; x < c.width; ++x) depth(x, y) = static_cast<float>(plane_depth(c, plane, x, y));
  return depth;
}

// The pixels of the w x h block at (x0, y0), row by row.
inline Superpixel block(int x0, int y0, int w, int h, uchar4 color = make_uchar4(10, 20, 30, 255)) {
  Superpixel s;
  s.color = color;
  for (int y = y0; y < y0 + h; ++y)
    for (int x = x0; x < x0 + w; ++x) s.pixels.emplace_back(x, y);
  return s;
}

// A particle set with its three arrays; `sort` orders it by (camera_index, pixel_index), since
// particles made from superpixels arrive in thread order.
struct Set : cloud::ParticleSet {
  void sort() {
    std::vector<size_t> order(particles.size());
    for (size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::sort(order.begin(), order.end(), [&](size_t a, size_t b) {
      const Particle &p = particles[a], &q = particles[b];
      return p.camera_index != q.camera_index ? p.camera_index < q.camera_index : p.pixel_index < q.pixel_index;
    });
    Set s;
    for (size_t i : order) s.add(particles[i], offsets[i], normals[i]);
    *this = s;
  }
  std::vector<int> pixel_indices() const {
    std::vector<int> v;
    for (const Particle& p : particles) v.push_back(p.pixel_index);
    return v;
  }
};

// The components of v, for exact comparisons in one expectation.
inline std::vector<float> xyz(float3 v) { return {v.x, v.y, v.z}; }

inline void expect_near(float3 a, D3 b, double tol) {
  EXPECT_NEAR(a.x, b.x, tol);
  EXPECT_NEAR(a.y, b.y, tol);
  EXPECT_NEAR(a.z, b.z, tol);
}

}  // namespace sp_test
