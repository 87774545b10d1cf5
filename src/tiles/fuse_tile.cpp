#include "src/tiles/fuse_tile.h"

#include <iostream>
#include <stdexcept>

#include "device/vector_math.h"
#include "src/core/settings.h"
#include "src/particles/particles_from_depthmap.h"

namespace {

float3 position(const TileModel& m, std::size_t i) { return m.particles[i].pos + m.offsets[i] * m.particles[i].dir; }

// Keeps the particles whose current position lies in the box, in their order.
void keep_inside(TileModel& m, const SpaceBox& box) {
  std::size_t kept = 0;
  for (std::size_t i = 0; i < m.particles.size(); ++i)
    if (box.contains(position(m, i))) {
      m.particles[kept] = m.particles[i];
      m.offsets[kept] = m.offsets[i];
      m.normals[kept] = m.normals[i];
      ++kept;
    }
  m.particles.resize(kept);
  m.offsets.resize(kept);
  m.normals.resize(kept);
}

// The fixed level needs no views; the visible share is not for tiles (see fuse_tile).
void support_filter(TileModel& m, const SupportFilterOptions& options) {
  support_filter(m.particles, m.offsets, m.normals, {}, options);
}

}  // namespace

TileModel fuse_tile(const Tile& tile, const Scaffold& scaffold, const ViewSource& read, const FilterOptions& filter,
                    const SupportFilterOptions& support) {
  if (support.rule.visible()) throw std::invalid_argument("fuse_tile: the visible share needs the whole model");
  TileModel m;
  // The plan's estimate, with room for its sampling error, spares the arrays their doublings.
  const std::size_t expected = tile.particles + tile.particles / 16;
  m.particles.reserve(expected);
  m.offsets.reserve(expected);
  m.normals.reserve(expected);
  for (int v : tile.views) {
    Camera cam;
    CMatrix<float> measured;
    read(v, cam, measured);
    CMatrix<float> depth;
    CMatrix<float3> normal_map;
    scaffold_images(scaffold, v, depth, normal_map);
    TileModel view;
    create_particles_from_depthmap(view.particles, view.offsets, view.normals, depth, normal_map, measured, cam.image,
                                   cam, depth_range_min, depth_range_max);
    keep_inside(view, tile.halo);
    m.particles.insert(m.particles.end(), view.particles.begin(), view.particles.end());
    m.offsets.insert(m.offsets.end(), view.offsets.begin(), view.offsets.end());
    m.normals.insert(m.normals.end(), view.normals.begin(), view.normals.end());
  }
  support_filter(m, support);
  std::cout << " Filter particles,     radius = " << filter.radius << "\n";
  std::cout << "                   #particles = " << m.particles.size() << "\n";
  filter_particles(m.particles, m.offsets, m.normals, filter);
  support_filter(m, support);
  keep_inside(m, tile.core);
  return m;
}
