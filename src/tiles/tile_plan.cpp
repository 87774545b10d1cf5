#include "src/tiles/tile_plan.h"

#include <algorithm>
#include <cmath>

namespace {

float coordinate(float3 p, int axis) { return axis == 0 ? p.x : axis == 1 ? p.y : p.z; }

std::uint64_t count_in(const std::vector<float3>& samples, const SpaceBox& box) {
  std::uint64_t n = 0;
#pragma omp parallel for schedule(static) reduction(+ : n)
  for (long long i = 0; i < static_cast<long long>(samples.size()); ++i) n += box.contains(samples[i]);
  return n;
}

Tile make_tile(const std::vector<float3>& samples, const SpaceBox& core, float halo, double weight) {
  Tile t;
  t.core = core;
  t.halo = core.grown(halo);
  t.particles = static_cast<std::uint64_t>(std::ceil(static_cast<double>(count_in(samples, t.halo)) * weight));
  return t;
}

// Halves a tile at the median of its core's samples along their longest extent; false when the
// core has too few samples or too little extent to be cut.
bool split(const std::vector<float3>& samples, const Tile& tile, float halo, double weight, Tile& a, Tile& b) {
  SpaceBox extent = empty_box();
  std::vector<float3> inside;
  for (const float3& p : samples)
    if (tile.core.contains(p)) {
      include_point(extent, p);
      inside.push_back(p);
    }
  if (inside.size() < 2) return false;
  int axis = 0;
  for (int k = 1; k < 3; ++k)
    if (extent.hi[k] - extent.lo[k] > extent.hi[axis] - extent.lo[axis]) axis = k;
  std::vector<float> values(inside.size());
  for (std::size_t i = 0; i < inside.size(); ++i) values[i] = coordinate(inside[i], axis);
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  const float cut = values[values.size() / 2];
  if (!(cut > extent.lo[axis])) return false;
  SpaceBox lower = tile.core, upper = tile.core;
  lower.hi[axis] = cut;
  upper.lo[axis] = cut;
  a = make_tile(samples, lower, halo, weight);
  b = make_tile(samples, upper, halo, weight);
  return std::max(a.particles, b.particles) < tile.particles;
}

}  // namespace

std::vector<Tile> plan_tiles(const std::vector<float3>& samples, double weight, std::uint64_t max_particles,
                             int min_tiles, float halo) {
  std::vector<Tile> tiles{make_tile(samples, SpaceBox{}, halo, weight)};
  for (;;) {
    const auto heaviest = std::max_element(tiles.begin(), tiles.end(),
                                           [](const Tile& x, const Tile& y) { return x.particles < y.particles; });
    if (heaviest->particles <= max_particles && static_cast<int>(tiles.size()) >= min_tiles) break;
    Tile a, b;
    if (!split(samples, *heaviest, halo, weight, a, b)) {
      if (heaviest->particles <= max_particles) break;  // as many tiles as the samples allow
      throw TilePlanError("a tile of " + std::to_string(heaviest->particles) +
                              " particles (its halo included) cannot be cut smaller",
                          heaviest->particles);
    }
    *heaviest = std::move(a);
    tiles.push_back(std::move(b));
  }
  return tiles;
}

void assign_views(std::vector<Tile>& tiles, const std::vector<SpaceBox>& view_boxes) {
  for (Tile& t : tiles) {
    t.views.clear();
    for (std::size_t v = 0; v < view_boxes.size(); ++v)
      if (view_boxes[v].intersects(t.halo)) t.views.push_back(static_cast<int>(v));
  }
}
