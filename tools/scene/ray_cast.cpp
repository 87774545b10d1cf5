#include "tools/scene/ray_cast.h"

#include <limits>

namespace scene {
namespace {

constexpr double kMinT = 1e-9;
constexpr double kNoHit = std::numeric_limits<double>::infinity();

struct LocalHit {
  double t = kNoHit;
  Vec3 normal;
};

void keep_nearer(LocalHit& best, double t, Vec3 normal) {
  if (t > kMinT && t < best.t) best = {t, normal};
}

LocalHit hit_rectangle(Vec3 o, Vec3 d, Vec3 size) {
  LocalHit h;
  if (d.z == 0) return h;
  const double t = -o.z / d.z;
  const Vec3 p = o + t * d;
  if (std::abs(p.x) <= size.x && std::abs(p.y) <= size.y) keep_nearer(h, t, {0, 0, 1});
  return h;
}

LocalHit hit_sphere(Vec3 o, Vec3 d, double r) {
  LocalHit h;
  const double a = dot(d, d), b = dot(o, d), c = dot(o, o) - r * r;
  const double disc = b * b - a * c;
  if (disc < 0) return h;
  const double root = std::sqrt(disc);
  for (double t : {(-b - root) / a, (-b + root) / a}) {
    if (t > kMinT) {
      keep_nearer(h, t, (1.0 / r) * (o + t * d));
      break;
    }
  }
  return h;
}

// Slab test; from outside the entry face is hit, from inside the exit face.
LocalHit hit_box(Vec3 o, Vec3 d, Vec3 half) {
  LocalHit h;
  const double od[3] = {o.x, o.y, o.z}, dd[3] = {d.x, d.y, d.z}, hd[3] = {half.x, half.y, half.z};
  double t_near = -kNoHit, t_far = kNoHit;
  int axis_near = 0, axis_far = 0;
  for (int i = 0; i < 3; ++i) {
    if (dd[i] == 0) {
      if (std::abs(od[i]) > hd[i]) return h;
      continue;
    }
    double t0 = (-hd[i] - od[i]) / dd[i], t1 = (hd[i] - od[i]) / dd[i];
    if (t0 > t1) std::swap(t0, t1);
    if (t0 > t_near) t_near = t0, axis_near = i;
    if (t1 < t_far) t_far = t1, axis_far = i;
  }
  if (t_near > t_far) return h;
  auto face_normal = [&](int axis, double t) {
    const double p[3] = {od[0] + t * dd[0], od[1] + t * dd[1], od[2] + t * dd[2]};
    Vec3 n;
    (axis == 0 ? n.x : axis == 1 ? n.y : n.z) = p[axis] > 0 ? 1.0 : -1.0;
    return n;
  };
  if (t_near > kMinT)
    keep_nearer(h, t_near, face_normal(axis_near, t_near));
  else if (t_far > kMinT)
    keep_nearer(h, t_far, face_normal(axis_far, t_far));
  return h;
}

LocalHit hit_cylinder(Vec3 o, Vec3 d, double r, double half_length) {
  LocalHit h;
  const double a = d.x * d.x + d.y * d.y;
  if (a > 0) {
    const double b = o.x * d.x + o.y * d.y, c = o.x * o.x + o.y * o.y - r * r;
    const double disc = b * b - a * c;
    if (disc >= 0) {
      const double root = std::sqrt(disc);
      for (double t : {(-b - root) / a, (-b + root) / a}) {
        const Vec3 p = o + t * d;
        if (std::abs(p.z) <= half_length) keep_nearer(h, t, {p.x / r, p.y / r, 0});
      }
    }
  }
  if (d.z != 0) {
    for (double side : {-1.0, 1.0}) {
      const double t = (side * half_length - o.z) / d.z;
      const Vec3 p = o + t * d;
      if (p.x * p.x + p.y * p.y <= r * r) keep_nearer(h, t, {0, 0, side});
    }
  }
  return h;
}

}  // namespace

Hit intersect_shape(const Shape& shape, Vec3 origin, Vec3 direction) {
  const Vec3 o = to_local(shape, origin);
  const Vec3 d = transpose_times(shape.axes, direction);
  LocalHit h;
  switch (shape.kind) {
    case ShapeKind::rectangle: h = hit_rectangle(o, d, shape.size); break;
    case ShapeKind::sphere: h = hit_sphere(o, d, shape.size.x); break;
    case ShapeKind::box: h = hit_box(o, d, shape.size); break;
    case ShapeKind::cylinder: h = hit_cylinder(o, d, shape.size.x, shape.size.z); break;
  }
  Hit hit;
  if (h.t == kNoHit) return hit;
  hit.found = true;
  hit.t = h.t;
  hit.point = origin + h.t * direction;
  hit.local_normal = h.normal;
  hit.normal = normalize(to_world_direction(shape, h.normal));
  if (dot(hit.normal, direction) > 0) hit.normal = -hit.normal;
  return hit;
}

Hit cast_ray(const Scene& scene, Vec3 origin, Vec3 direction) {
  Hit best;
  for (size_t i = 0; i < scene.shapes.size(); ++i) {
    Hit h = intersect_shape(scene.shapes[i], origin, direction);
    if (h.found && (!best.found || h.t < best.t)) {
      best = h;
      best.shape = static_cast<int>(i);
    }
  }
  return best;
}

}  // namespace scene
