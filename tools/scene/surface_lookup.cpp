#include "tools/scene/surface_lookup.h"

#include <algorithm>
#include <cmath>

#include "tools/scene/street.h"

namespace scene {
namespace {

// About one object of the generated scenes per slab.
constexpr double kSlabWidth = 1.0;
// Rounding slack of the bounds: a shape is passed over only when its bound exceeds the nearest
// distance by more than this, far above the rounding of the distances.
constexpr double kSlack = 1e-6;

}  // namespace

SurfaceLookup make_surface_lookup(const Scene& scene) {
  SurfaceLookup l;
  l.scene = &scene;
  l.slab_width = kSlabWidth;
  const size_t n = scene.shapes.size();
  double low = 0, high = 0;
  for (size_t i = 0; i < n; ++i) {
    const Shape& s = scene.shapes[i];
    l.radius.push_back(bound_radius(s));
    low = i == 0 ? s.center.x - l.radius[i] : std::min(low, s.center.x - l.radius[i]);
    high = i == 0 ? s.center.x + l.radius[i] : std::max(high, s.center.x + l.radius[i]);
  }
  l.x0 = low;
  const int slabs = std::max(1, static_cast<int>(std::ceil((high - low) / l.slab_width)));
  l.slab_shapes.resize(slabs);
  const auto slab_of = [&](double x) {
    return std::clamp(static_cast<int>(std::floor((x - l.x0) / l.slab_width)), 0, slabs - 1);
  };
  for (size_t i = 0; i < n; ++i) {
    const Shape& s = scene.shapes[i];
    l.first_slab.push_back(slab_of(s.center.x - l.radius[i]));
    l.last_slab.push_back(slab_of(s.center.x + l.radius[i]));
    for (int k = l.first_slab[i]; k <= l.last_slab[i]; ++k) l.slab_shapes[k].push_back(static_cast<int>(i));
  }
  return l;
}

SurfacePoint nearest_surface(const SurfaceLookup& l, Vec3 point) {
  const Scene& scene = *l.scene;
  SurfacePoint best;
  if (l.slab_shapes.empty()) return best;
  const int slabs = static_cast<int>(l.slab_shapes.size());
  // Ties go to the lower shape index, as in closest_surface, whatever order shapes are tried in.
  const auto consider = [&](int i) {
    const double d = shape_distance(scene.shapes[i], point);
    if (best.shape < 0 || d < best.distance || (d == best.distance && i < best.shape)) {
      best.distance = d;
      best.shape = i;
    }
  };
  const auto gap = [&](int k) {  // from the point to slab k along x
    const double lo = l.x0 + k * l.slab_width, hi = lo + l.slab_width;
    return std::max({0.0, lo - point.x, point.x - hi});
  };
  const int home = std::clamp(static_cast<int>(std::floor((point.x - l.x0) / l.slab_width)), 0, slabs - 1);
  for (int i : l.slab_shapes[home]) consider(i);
  // Slabs [low, high] searched so far; a shape reaching into them was tried already.
  int low = home, high = home;
  for (;;) {
    const bool left = low > 0 && gap(low - 1) <= best.distance + kSlack;
    const bool right = high < slabs - 1 && gap(high + 1) <= best.distance + kSlack;
    if (!left && !right) break;
    const int k = left ? --low : ++high;
    for (int i : l.slab_shapes[k]) {
      if (l.last_slab[i] >= low + (left ? 1 : 0) && l.first_slab[i] <= high - (left ? 0 : 1)) continue;
      if (length(point - scene.shapes[i].center) - l.radius[i] > best.distance + kSlack) continue;
      consider(i);
    }
  }
  if (best.shape >= 0) best.normal = shape_normal(scene.shapes[best.shape], point);
  return best;
}

}  // namespace scene
