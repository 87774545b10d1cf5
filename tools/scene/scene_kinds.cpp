#include "tools/scene/scene_kinds.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "formats/text_file.h"
#include "tools/scene/scene_files.h"

namespace scene {
namespace {

const Material kRodMaterial{{0.15, 0.15, 0.15}, {0.85, 0.85, 0.85}, Pattern::stripes, 0.05};

const Material& shape_material(const Scene& s, const std::string& name) {
  return s.shapes[find_shape(s, name)].material;
}

// Six rods of 8 to 12 mm, one to two pixels wide at 640 x 480, placed clear of the objects.
Scene make_mixed_scene() {
  Scene s = make_default_scene();
  s.shapes.push_back(rod("rod_3", {0.35, 0.15, 0.0}, {0.35, 0.15, 0.9}, kRodMaterial, 0.005));
  s.shapes.push_back(rod("rod_4", {-0.30, -0.30, 0.0}, {0.15, -0.45, 0.85}, kRodMaterial, 0.004));
  s.shapes.push_back(rod("rod_5", {-0.35, 1.00, 0.55}, {0.30, 1.05, 0.55}, kRodMaterial, 0.006));
  s.shapes.push_back(rod("rod_6", {-0.15, 0.45, 0.0}, {-0.15, 0.45, 1.1}, kRodMaterial, 0.006));
  s.shapes.push_back(rod("rod_7", {0.15, 0.95, 0.0}, {0.45, 1.10, 0.7}, kRodMaterial, 0.005));
  s.shapes.push_back(rod("rod_8", {0.20, -1.10, 0.25}, {0.90, -1.30, 0.25}, kRodMaterial, 0.004));
  return s;
}

// Thin structures first: a fence of posts and rails, the edges of a cube, a mast held by guy wires
// of 6 mm (about one pixel at 640 x 480), the sample scene's 4 mm sheet and a 2 mm one, and a small
// ball and the ground for the views to agree on.
Scene make_thin_scene() {
  const Scene standard = make_default_scene();
  Scene s;
  s.look_at = standard.look_at;
  s.shapes.push_back(standard.shapes[find_shape(standard, "ground")]);
  s.shapes.push_back(standard.shapes[find_shape(standard, "sheet")]);
  s.shapes.push_back({"sheet_thin", ShapeKind::box, {0.60, -0.55, 0.28}, yaw_axes(degrees(50)),
                      {0.001, 0.35, 0.25}, shape_material(standard, "box")});
  s.shapes.push_back({"sphere", ShapeKind::sphere, {0.05, -0.75, 0.15}, Mat3{}, {0.15, 0.15, 0.15},
                      shape_material(standard, "sphere")});
  int n = 0;
  const auto add_rod = [&](Vec3 from, Vec3 to, double radius) {
    s.shapes.push_back(rod("rod_" + std::to_string(n++), from, to, kRodMaterial, radius));
  };
  // Fence: seven posts of 8 to 14 mm, and two rails.
  for (int i = 0; i < 7; ++i) {
    const double x = -1.05 + 0.15 * i;
    add_rod({x, 0.80, 0.0}, {x, 0.80, 0.85}, 0.004 + 0.001 * i);
  }
  add_rod({-1.10, 0.80, 0.80}, {-0.10, 0.80, 0.80}, 0.006);
  add_rod({-1.10, 0.80, 0.30}, {-0.10, 0.80, 0.30}, 0.005);
  // The twelve edges of a cube of 0.5 m, turned about z, on 5 cm feet.
  const Vec3 centre{0.65, 0.55, 0.30};
  const Mat3 axes = yaw_axes(degrees(20));
  const auto corner = [&](int i) {
    const Vec3 local{(i & 1) ? 0.25 : -0.25, (i & 2) ? 0.25 : -0.25, (i & 4) ? 0.25 : -0.25};
    return centre + axes * local;
  };
  for (int i = 0; i < 8; ++i)
    for (int bit : {1, 2, 4})
      if (!(i & bit)) add_rod(corner(i), corner(i | bit), 0.005);
  // Mast and guy wires.
  const Vec3 top{-0.05, 0.05, 1.2};
  add_rod({-0.05, 0.05, 0.0}, top, 0.006);
  add_rod(top, {-0.75, -0.10, 0.0}, 0.003);
  add_rod(top, {0.45, -0.25, 0.0}, 0.003);
  add_rod(top, {0.10, 0.75, 0.0}, 0.003);
  return s;
}

}  // namespace

bool parse_scene_kind(const std::string& name, SceneKind& kind) {
  for (SceneKind k : {SceneKind::standard, SceneKind::mixed, SceneKind::thin})
    if (name == scene_kind_name(k)) {
      kind = k;
      return true;
    }
  return false;
}

std::string scene_kind_name(SceneKind kind) {
  switch (kind) {
    case SceneKind::mixed: return "mixed";
    case SceneKind::thin: return "thin";
    default: return "standard";
  }
}

Scene make_scene(SceneKind kind) {
  switch (kind) {
    case SceneKind::mixed: return make_mixed_scene();
    case SceneKind::thin: return make_thin_scene();
    default: return make_default_scene();
  }
}

void write_scene_kind(const std::string& directory, SceneKind kind) {
  if (kind != SceneKind::standard) write_text(directory + "/" + kSceneKindFile, scene_kind_name(kind) + "\n");
}

SceneKind read_scene_kind(const std::string& directory) {
  const std::string path = directory + "/" + kSceneKindFile;
  if (!std::filesystem::exists(path)) return SceneKind::standard;
  std::ifstream in(path);
  std::string name;
  SceneKind kind = SceneKind::standard;
  if (!(in >> name) || !parse_scene_kind(name, kind))
    throw std::runtime_error(path + ": not a scene kind (standard, mixed or thin)");
  return kind;
}

}  // namespace scene
