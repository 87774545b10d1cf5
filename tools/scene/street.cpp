#include "tools/scene/street.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <stdexcept>

#include "tools/scene/scene_kinds.h"

namespace scene {
namespace {

constexpr double kBlockLength = 1.6;  // one object per side and block
constexpr double kObjectRow = 1.5;    // distance of the object rows from the centre line
constexpr double kFacade = 3.0;       // distance of the facades from the centre line

Mat3 yaw_axes(double angle) {
  const double c = std::cos(angle), s = std::sin(angle);
  return from_columns({c, s, 0}, {-s, c, 0}, {0, 0, 1});
}

// Axes of a rectangle standing in the vertical plane through the street's direction, its local z
// (the face normal) pointing to the centre line from the side `side` (+1 left, -1 right).
Mat3 facade_axes(double side) { return from_columns({1, 0, 0}, {0, 0, 1}, {0, -side, 0}); }

double street_length(int views) { return views * kStreetViewSpacing + 2.0; }

// The object of block b on side `side`: the four kinds in turn, shifted by one between the
// sides, varied in size and turn by the block so that no two neighbours look alike.
Shape street_object(int block, double side) {
  const int kind = (block + (side > 0 ? 0 : 2)) % 4;
  const double x = (block + 0.5) * kBlockLength;
  const double y = side * kObjectRow;
  const double vary = 0.5 + 0.5 * std::sin(1.3 * block + side);
  std::string name = "block_" + std::to_string(block);
  name += side > 0 ? "_left" : "_right";
  switch (kind) {
    case 0:
      return {name, ShapeKind::sphere, {x, y, 0.3}, Mat3{}, {0.3, 0.3, 0.3},
              {{0.85, 0.25, 0.20}, {0.95, 0.80, 0.30}, Pattern::stripes, 0.07}};
    case 1:
      return {name, ShapeKind::box, {x, y, 0.3 + 0.1 * vary}, yaw_axes(0.6 * vary - 0.3),
              {0.3, 0.2, 0.3 + 0.1 * vary}, {{0.20, 0.45, 0.85}, {0.90, 0.90, 0.95}, Pattern::checker, 0.1}};
    case 2:
      return {name, ShapeKind::cylinder, {x, y, 0.35}, Mat3{}, {0.15 + 0.1 * vary, 0.15 + 0.1 * vary, 0.35},
              {{0.25, 0.70, 0.30}, {0.10, 0.25, 0.10}, Pattern::stripes, 0.05}};
    default:
      // A 4 mm slab across the street: its two large faces look along the street.
      return {name, ShapeKind::box, {x, y, 0.36}, yaw_axes(0.3 * vary - 0.15), {0.002, 0.35, 0.3},
              {{0.95, 0.60, 0.15}, {0.55, 0.20, 0.75}, Pattern::faces, 0.1}};
  }
}

Shape street_rod(int block, double side) {
  const double x = block * kBlockLength + 0.1;
  const double lean = 0.15 * std::sin(2.3 * block + side);
  const Vec3 from{x, side * (kObjectRow - 0.6), 0.0}, to{x + lean, side * (kObjectRow - 0.6), 1.0};
  const Vec3 axis = normalize(to - from);
  const Vec3 u = normalize(cross({0, 1, 0}, axis));
  std::string name = "rod_" + std::to_string(block);
  name += side > 0 ? "_left" : "_right";
  return {name, ShapeKind::cylinder,
          0.5 * (from + to), from_columns(u, cross(axis, u), axis), {0.0075, 0.0075, 0.5 * length(to - from)},
          {{0.15, 0.15, 0.15}, {0.85, 0.85, 0.85}, Pattern::stripes, 0.05}};
}

}  // namespace

double bound_radius(const Shape& s) {
  switch (s.kind) {
    case ShapeKind::sphere: return s.size.x;
    case ShapeKind::rectangle: return std::hypot(s.size.x, s.size.y);
    case ShapeKind::cylinder: return std::hypot(s.size.x, s.size.z);
    case ShapeKind::box: return length(s.size);
  }
  return 0;
}

bool parse_arrangement(const std::string& name, Arrangement& arrangement) {
  if (name == "ring") arrangement = Arrangement::ring;
  else if (name == "street") arrangement = Arrangement::street;
  else return false;
  return true;
}

Scene make_street_scene(int views) {
  Scene s;
  const double length = street_length(views);
  s.look_at = {0.5 * length, 0, 0.5};
  s.shapes.push_back({"ground", ShapeKind::rectangle, {0.5 * length, 0, 0}, Mat3{}, {0.5 * length + 4, kFacade + 1, 0},
                      {{0.80, 0.78, 0.70}, {0.35, 0.40, 0.45}, Pattern::checker, 0.25}});
  for (double side : {1.0, -1.0})
    s.shapes.push_back({side > 0 ? "facade_left" : "facade_right", ShapeKind::rectangle,
                        {0.5 * length, side * kFacade, 1.25}, facade_axes(side), {0.5 * length + 4, 1.25, 0},
                        {{0.75, 0.70, 0.62}, {0.55, 0.35, 0.30}, Pattern::checker, 0.2}});
  const int blocks = static_cast<int>(std::ceil(length / kBlockLength));
  for (int b = 0; b < blocks; ++b)
    for (double side : {1.0, -1.0}) {
      s.shapes.push_back(street_object(b, side));
      s.shapes.push_back(street_rod(b, side));
    }
  return s;
}

std::vector<SceneCamera> make_street_cameras(int views, int width, int height) {
  std::vector<SceneCamera> cameras;
  const auto as_float = [](Vec3 v) {
    return Vec3{static_cast<float>(v.x), static_cast<float>(v.y), static_cast<float>(v.z)};
  };
  for (int i = 0; i < views; ++i) {
    const double side = i % 2 == 0 ? 1.0 : -1.0;
    const double turn = 0.45 * std::sin(0.9 * i + 0.4);  // along the street, up to about 26 degrees
    const double pitch = 0.42 + 0.05 * std::sin(1.7 * i);
    const Vec3 eye{1.0 + i * kStreetViewSpacing, 0.15 * std::sin(0.5 * i), 1.4 + 0.1 * std::sin(1.1 * i + 0.2)};
    const Vec3 level{std::sin(turn), side * std::cos(turn), 0};
    const Vec3 forward = normalize(std::cos(pitch) * level + Vec3{0, 0, -std::sin(pitch)});
    const Vec3 right = normalize(cross(forward, {0, 0, 1}));
    const Vec3 down = cross(forward, right);
    SceneCamera c;
    c.width = width;
    c.height = height;
    c.fx = c.fy = static_cast<float>(0.82 * width);
    c.cx = static_cast<float>(0.5 * (width - 1));
    c.cy = static_cast<float>(0.5 * (height - 1));
    c.R = from_rows(as_float(right), as_float(down), as_float(forward));
    c.t = as_float(-(c.R * eye));
    c.center = -transpose_times(c.R, c.t);
    cameras.push_back(c);
  }
  return cameras;
}

Scene shapes_near(const Scene& scene, Vec3 eye, double range) {
  Scene near;
  near.look_at = scene.look_at;
  for (const Shape& s : scene.shapes)
    if (length(s.center - eye) - bound_radius(s) <= range) near.shapes.push_back(s);
  return near;
}

void limit_depth_range(RenderedView& view, double range) {
  for (size_t i = 0; i < view.depth.size(); ++i)
    if (view.depth[i] > range) {
      view.depth[i] = view.measured[i] = 0;
      view.depth_mm[i] = 0;
      view.shape[i] = -1;
    }
}

Scene scene_of_directory(const std::string& scene_dir) {
  const std::string marker = scene_dir + "/" + kStreetFileName;
  if (!std::filesystem::exists(marker)) return make_scene(read_scene_kind(scene_dir));
  std::ifstream in(marker);
  std::string word;
  int views = 0;
  if (!(in >> word >> views) || word != "street" || views < 2)
    throw std::runtime_error("cannot read " + marker + ": expected \"street VIEWS\"");
  return make_street_scene(views);
}

}  // namespace scene
