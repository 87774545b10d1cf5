#pragma once

#include "tools/scene/scene.h"

namespace scene {

struct Hit {
  bool found = false;
  double t = 0;        // ray parameter of the hit; the ray length for a unit direction
  int shape = -1;      // index into Scene::shapes
  Vec3 point;          // world position
  Vec3 normal;         // analytic unit normal, turned to face the ray origin
  Vec3 local_normal;   // outward normal of the hit face in the shape's local frame
};

// Nearest hit with t > 0 of the ray origin + t * direction (direction need not be unit length).
Hit cast_ray(const Scene& scene, Vec3 origin, Vec3 direction);

// Hit of one shape alone, same rules.
Hit intersect_shape(const Shape& shape, Vec3 origin, Vec3 direction);

}  // namespace scene
