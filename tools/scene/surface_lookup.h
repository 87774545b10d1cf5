#pragma once

#include <vector>

#include "tools/scene/scene.h"
#include "tools/scene/surface_distance.h"

namespace scene {

// The nearest true surface of a scene with many shapes (a long street), found by looking only at
// the shapes that can be nearest: shapes are listed by the slabs along x that their bounding
// spheres reach, and slabs are searched outwards from the point's own until they lie farther
// than the nearest surface found. The result is closest_surface's, to the bit.
struct SurfaceLookup {
  const Scene* scene = nullptr;
  double x0 = 0, slab_width = 1;
  std::vector<std::vector<int>> slab_shapes;  // per slab, in shape order
  std::vector<int> first_slab, last_slab;     // per shape
  std::vector<double> radius;                 // of each shape's bounding sphere
};

// The lookup keeps a pointer to the scene, which must outlive it.
SurfaceLookup make_surface_lookup(const Scene& scene);

SurfacePoint nearest_surface(const SurfaceLookup& lookup, Vec3 point);

}  // namespace scene
