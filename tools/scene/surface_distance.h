#pragma once

#include "device/vector_types.h"
#include "tools/scene/scene.h"

namespace scene {

struct SurfacePoint {
  double distance = 0;  // unsigned distance to the nearest true surface
  int shape = -1;       // index of the shape that owns that surface
  Vec3 normal;          // outward analytic unit normal of that surface (the ground: +z)
};

// Nearest surface of the whole scene to a world point.
SurfacePoint closest_surface(const Scene& scene, Vec3 point);

// Unsigned distance of a world point to the nearest true surface.
double distance_to_surface(const Scene& scene, Vec3 point);
double distance_to_surface(const Scene& scene, float3 point);

// Outward analytic normal of the nearest true surface.
Vec3 surface_normal(const Scene& scene, Vec3 point);
float3 surface_normal(const Scene& scene, float3 point);

// The same for one shape: unsigned distance, and the outward normal of its nearest face.
double shape_distance(const Shape& shape, Vec3 point);
Vec3 shape_normal(const Shape& shape, Vec3 point);

}  // namespace scene
