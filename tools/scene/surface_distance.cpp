#include "tools/scene/surface_distance.h"

#include <algorithm>

namespace scene {
namespace {

double clamp_abs(double v, double limit) { return std::clamp(v, -limit, limit); }

// Signed distance of a local point to a box (negative inside), so that the unsigned distance to
// the box surface is its absolute value.
double box_signed(Vec3 q, Vec3 h) {
  const Vec3 e{std::abs(q.x) - h.x, std::abs(q.y) - h.y, std::abs(q.z) - h.z};
  const Vec3 outside{std::max(e.x, 0.0), std::max(e.y, 0.0), std::max(e.z, 0.0)};
  return length(outside) + std::min(std::max({e.x, e.y, e.z}), 0.0);
}

double cylinder_signed(Vec3 q, double r, double half_length) {
  const double er = std::hypot(q.x, q.y) - r, ez = std::abs(q.z) - half_length;
  return std::hypot(std::max(er, 0.0), std::max(ez, 0.0)) + std::min(std::max(er, ez), 0.0);
}

double sign_of(double v) { return v >= 0 ? 1.0 : -1.0; }

Vec3 local_normal(const Shape& s, Vec3 q) {
  switch (s.kind) {
    case ShapeKind::rectangle: return {0, 0, 1};
    case ShapeKind::sphere: return length(q) > 0 ? normalize(q) : Vec3{0, 0, 1};
    case ShapeKind::box: {
      // The face whose plane lies farthest out along its own axis is the nearest face.
      const double e[3] = {std::abs(q.x) - s.size.x, std::abs(q.y) - s.size.y,
                           std::abs(q.z) - s.size.z};
      const int axis = static_cast<int>(std::max_element(e, e + 3) - e);
      if (axis == 0) return {sign_of(q.x), 0, 0};
      if (axis == 1) return {0, sign_of(q.y), 0};
      return {0, 0, sign_of(q.z)};
    }
    case ShapeKind::cylinder: {
      const double rho = std::hypot(q.x, q.y);
      const double er = rho - s.size.x, ez = std::abs(q.z) - s.size.z;
      if (ez > er || rho == 0) return {0, 0, sign_of(q.z)};
      return {q.x / rho, q.y / rho, 0};
    }
  }
  return {0, 0, 1};
}

}  // namespace

double shape_distance(const Shape& s, Vec3 point) {
  const Vec3 q = to_local(s, point);
  switch (s.kind) {
    case ShapeKind::rectangle:
      return length(q - Vec3{clamp_abs(q.x, s.size.x), clamp_abs(q.y, s.size.y), 0});
    case ShapeKind::sphere: return std::abs(length(q) - s.size.x);
    case ShapeKind::box: return std::abs(box_signed(q, s.size));
    case ShapeKind::cylinder: return std::abs(cylinder_signed(q, s.size.x, s.size.z));
  }
  return 0;
}

Vec3 shape_normal(const Shape& s, Vec3 point) {
  return normalize(to_world_direction(s, local_normal(s, to_local(s, point))));
}

SurfacePoint closest_surface(const Scene& scene, Vec3 point) {
  SurfacePoint best;
  for (size_t i = 0; i < scene.shapes.size(); ++i) {
    const double d = shape_distance(scene.shapes[i], point);
    if (best.shape < 0 || d < best.distance) {
      best.distance = d;
      best.shape = static_cast<int>(i);
    }
  }
  if (best.shape >= 0) best.normal = shape_normal(scene.shapes[best.shape], point);
  return best;
}

double distance_to_surface(const Scene& scene, Vec3 point) { return closest_surface(scene, point).distance; }

double distance_to_surface(const Scene& scene, float3 point) {
  return distance_to_surface(scene, Vec3{point.x, point.y, point.z});
}

Vec3 surface_normal(const Scene& scene, Vec3 point) { return closest_surface(scene, point).normal; }

float3 surface_normal(const Scene& scene, float3 point) {
  const Vec3 n = surface_normal(scene, Vec3{point.x, point.y, point.z});
  return {static_cast<float>(n.x), static_cast<float>(n.y), static_cast<float>(n.z)};
}

}  // namespace scene
