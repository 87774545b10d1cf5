#pragma once

#include <string>
#include <vector>

#include "tools/scene/vec3.h"

// The analytic sample scene: a few primitives, each in its own local frame, in metres with z up.
namespace scene {

enum class ShapeKind {
  rectangle,  // zero-thickness rectangle in the local plane z = 0, half extents size.x, size.y
  sphere,     // radius size.x
  box,        // half extents size.x, size.y, size.z
  cylinder,   // capped, axis along local z, radius size.x, half length size.z
};

enum class Pattern {
  checker,  // 3-D checker of cell size `scale` in local coordinates, colours a and b
  stripes,  // bands of width `scale` along the local z axis, colours a and b
  faces,    // colour a on faces whose local normal points to +x/+y/+z, colour b on the others
};

struct Material {
  Vec3 colour_a;  // linear RGB in 0..1
  Vec3 colour_b;
  Pattern pattern = Pattern::checker;
  double scale = 0.1;
};

struct Shape {
  std::string name;
  ShapeKind kind = ShapeKind::sphere;
  Vec3 center;
  Mat3 axes;  // columns: the local x, y, z axes in world coordinates
  Vec3 size;
  Material material;
};

struct Scene {
  std::vector<Shape> shapes;
  Vec3 look_at;  // the point every camera looks at
};

// The fixed sample scene: finite textured ground, sphere, box, cylinder, a 4 mm sheet and three
// rods of 1.5 cm diameter, all within about 2 m of the origin. It does not depend on any seed.
Scene make_default_scene();

// Axes turned by `angle` radians about the world z axis.
Mat3 yaw_axes(double angle);
// Axes whose local z runs along `axis`; the other two complete a right-handed frame.
Mat3 axes_along(Vec3 axis);
// A capped cylinder from `from` to `to`; the sample scene's rods are 1.5 cm thick.
Shape rod(const std::string& name, Vec3 from, Vec3 to, const Material& material, double radius = 0.0075);
double degrees(double d);

// Index of the shape with this name, or -1.
int find_shape(const Scene& scene, const std::string& name);

// Local frame helpers.
Vec3 to_local(const Shape& shape, Vec3 world_point);
Vec3 to_world_direction(const Shape& shape, Vec3 local_direction);

}  // namespace scene
