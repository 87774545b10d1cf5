#include "tools/scene/scene.h"

#include <numbers>

namespace scene {

Mat3 yaw_axes(double angle) {
  const double c = std::cos(angle), s = std::sin(angle);
  return from_columns({c, s, 0}, {-s, c, 0}, {0, 0, 1});
}

Mat3 axes_along(Vec3 axis) {
  const Vec3 w = normalize(axis);
  const Vec3 helper = std::abs(w.z) < 0.9 ? Vec3{0, 0, 1} : Vec3{1, 0, 0};
  const Vec3 u = normalize(cross(helper, w));
  return from_columns(u, cross(w, u), w);
}

Shape rod(const std::string& name, Vec3 from, Vec3 to, const Material& material, double radius) {
  return {name, ShapeKind::cylinder, 0.5 * (from + to), axes_along(to - from),
          {radius, radius, 0.5 * length(to - from)}, material};
}

double degrees(double d) { return d * std::numbers::pi / 180.0; }

Scene make_default_scene() {
  Scene s;
  s.look_at = {0.08, -0.06, 0.35};
  const Mat3 identity;
  s.shapes.push_back({"ground", ShapeKind::rectangle, {0, 0, 0}, identity, {2.2, 2.2, 0},
                      {{0.80, 0.78, 0.70}, {0.35, 0.40, 0.45}, Pattern::checker, 0.25}});
  s.shapes.push_back({"sphere", ShapeKind::sphere, {0.75, 0.55, 0.35}, identity, {0.35, 0.35, 0.35},
                      {{0.85, 0.25, 0.20}, {0.95, 0.80, 0.30}, Pattern::stripes, 0.07}});
  s.shapes.push_back({"box", ShapeKind::box, {-0.70, 0.65, 0.25}, yaw_axes(degrees(25)),
                      {0.30, 0.20, 0.25},
                      {{0.20, 0.45, 0.85}, {0.90, 0.90, 0.95}, Pattern::checker, 0.1}});
  s.shapes.push_back({"cylinder", ShapeKind::cylinder, {0.70, -0.70, 0.30}, identity,
                      {0.20, 0.20, 0.30},
                      {{0.25, 0.70, 0.30}, {0.10, 0.25, 0.10}, Pattern::stripes, 0.05}});
  // Vertical slab of 0.8 m x 0.6 m and 4 mm: both large faces are real, distinct surfaces.
  s.shapes.push_back({"sheet", ShapeKind::box, {-0.55, -0.60, 0.36}, yaw_axes(degrees(-35)),
                      {0.002, 0.40, 0.30},
                      {{0.95, 0.60, 0.15}, {0.55, 0.20, 0.75}, Pattern::faces, 0.1}});
  const Material rod_material{{0.15, 0.15, 0.15}, {0.85, 0.85, 0.85}, Pattern::stripes, 0.05};
  s.shapes.push_back(rod("rod_0", {0.05, -0.05, 0.0}, {0.05, -0.05, 1.0}, rod_material));
  s.shapes.push_back(rod("rod_1", {-1.20, 0.05, 0.0}, {-1.20, 0.05, 0.8}, rod_material));
  s.shapes.push_back(rod("rod_2", {1.05, -1.35, 0.0}, {1.35, -0.45, 0.7}, rod_material));
  return s;
}

int find_shape(const Scene& scene, const std::string& name) {
  for (size_t i = 0; i < scene.shapes.size(); ++i)
    if (scene.shapes[i].name == name) return static_cast<int>(i);
  return -1;
}

Vec3 to_local(const Shape& shape, Vec3 world_point) {
  return transpose_times(shape.axes, world_point - shape.center);
}

Vec3 to_world_direction(const Shape& shape, Vec3 local_direction) { return shape.axes * local_direction; }

}  // namespace scene
