#include "src/filter/density.h"

#include <algorithm>
#include <iostream>

#include "src/spatial/cell_index.h"
#include "src/core/settings.h"
#include "src/core/viewer_hooks.h"

void update_density(std::vector<float>& density, const std::vector<Particle>& particles, std::vector<float>& offsets,
                    std::vector<float3>& normals, const std::vector<unsigned long long>& cell_keys,
                    const std::vector<int>& cell_prefix_sum, const std::vector<unsigned int>& handles,
                    const HashMap& cell_map, const HashMap& first_cell_map, float3 grid_min, int max_cell_length,
                    float radius, float alpha, float beta, int stride) {
  std::cout << "  updating particle density" << std::endl;
  ComputeDensityFunctor functor;
  std::vector<std::pair<int, float>> results;
  iterate_particles_cells<ComputeDensityFunctor, true>(functor, results, cell_keys, cell_prefix_sum, density, offsets,
                                                       normals, particles, handles, cell_map, first_cell_map,
                                                       grid_min, max_cell_length, radius, alpha, beta, stride);
  merge_results(density, results);
}

namespace {

// Grey level of the support view: (int)(v) cut to a byte. Values a 32-bit conversion can't hold
// (NaN from 0 / 0 included) give the processor's integer indefinite, whose low byte is 0.
unsigned char grey_byte(float v) {
  if (v >= -2147483648.0f && v < 2147483648.0f) return static_cast<unsigned char>(static_cast<int>(v));
  return 0;
}

}  // namespace

void compute_particle_support(std::vector<float>& support, std::vector<Particle>& particles,
                              std::vector<float>& offsets, std::vector<float3>& normals, float radius,
                              float min_support) {
  const long long n = static_cast<long long>(particles.size());
  float3 box_min;
  particles_bounding_box(&box_min, nullptr, particles, offsets);
  const float margin = 10.0f * radius;
  const float3 grid_min = {box_min.x - margin, box_min.y - margin, box_min.z - margin};
  const float inv_cell = 1.0f / radius;

  std::vector<unsigned int> handles(n);
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) handles[k] = static_cast<unsigned int>(k);
  std::vector<unsigned long long> keys;
  compute_cell_keys(keys, handles, particles, offsets, grid_min, inv_cell);
  sort_particle_handles(handles, keys);
  reorder_particles(particles, offsets, normals, handles);

  support.assign(n, 0.0f);
  if (n > 0) {
    std::vector<unsigned long long> cell_keys;
    std::vector<unsigned int> cell_starts;
    std::vector<int> cell_prefix_sum;
    create_cell_start_index_table(cell_keys, cell_starts, keys);
    create_cell_size_prefix_sum(cell_prefix_sum, cell_starts, static_cast<int>(n));
    const HashMap cell_map = create_hash_map(cell_keys, cell_starts, 0.8f);

    ComputeParticleSupportFunctor::min_support = min_support;
    ComputeParticleSupportFunctor functor;
    std::vector<std::pair<int, float>> results;
    const std::vector<float> no_density;
    iterate_particles_cells<ComputeParticleSupportFunctor, true>(functor, results, cell_keys, cell_prefix_sum,
                                                                 no_density, offsets, normals, particles, handles,
                                                                 cell_map, cell_map, grid_min, 0, radius, 0.0f, 0.0f, 1);
    merge_results(support, results);
  }

  float largest_support = 0.0f;
  for (float s : support) largest_support = std::max(largest_support, s);
  std::vector<Particle> view = particles;
#pragma omp parallel for schedule(static)
  for (long long i = 0; i < n; ++i) {
    const unsigned char grey = grey_byte(support[i] / largest_support * 255.0f);
    view[i].color.x = grey;
    view[i].color.y = grey;
    view[i].color.z = grey;
  }
  sendParticlesToLumvik(view, offsets, normals, "particles_support", debug_lumvik_particle_iteration++);
}
