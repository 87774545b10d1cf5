#include "src/filter/normals.h"

#include <iostream>


#include "src/core/settings.h"
#include "src/core/smallest_eigenvector.h"

float3 normal_from_moments(const float lower[6], const Particle& particle) {
  Eigen::Matrix3f C;
  C << lower[0], lower[1], lower[3],
       lower[1], lower[2], lower[4],
       lower[3], lower[4], lower[5];
  const Eigen::Vector3f v = smallest_eigenvector(C);
  float3 e = {v(0), v(1), v(2)};
  if (!is_finite_value(e.x) || !is_finite_value(e.y) || !is_finite_value(e.z)) return particle.init_normal;
  if (dot(e, particle.dir) <= 0.0f) e = -e;
  return e;
}

namespace {

template <bool first_iteration, bool use_dot_weight>
void run_normals_pass(const std::vector<Particle>& particles, std::vector<float>& offsets,
                      std::vector<float3>& normals, const std::vector<unsigned long long>& cell_keys,
                      const std::vector<int>& cell_prefix_sum, const std::vector<unsigned int>& handles,
                      const HashMap& cell_map, float3 grid_min, int max_cell_length, float radius, float alpha,
                      float beta, int stride) {
  using Functor = ComputeNormalsFunctor<first_iteration, use_dot_weight>;
  Functor functor;
  std::vector<std::pair<int, float3>> results;
  const std::vector<float> no_density;
  iterate_particles_cells<Functor, true>(functor, results, cell_keys, cell_prefix_sum, no_density, offsets, normals,
                                         particles, handles, cell_map, cell_map, grid_min, max_cell_length, radius,
                                         alpha, beta, stride);
  merge_results(normals, results);
}

}  // namespace

void compute_normals(const std::vector<Particle>& particles, std::vector<float>& offsets,
                     std::vector<float3>& normals, const std::vector<unsigned long long>& cell_keys,
                     const std::vector<int>& cell_prefix_sum, const std::vector<unsigned int>& handles,
                     const HashMap& cell_map, float3 grid_min, int max_cell_length, float radius, float alpha,
                     float beta, bool first_iteration, int stride) {
  std::cout << "  computing normals" << std::endl;
  if (first_iteration)
    run_normals_pass<true, false>(particles, offsets, normals, cell_keys, cell_prefix_sum, handles, cell_map,
                                  grid_min, max_cell_length, radius, alpha, beta, stride);
  else if (use_normal_dot_weight)
    run_normals_pass<false, true>(particles, offsets, normals, cell_keys, cell_prefix_sum, handles, cell_map,
                                  grid_min, max_cell_length, radius, alpha, beta, stride);
  else
    run_normals_pass<false, false>(particles, offsets, normals, cell_keys, cell_prefix_sum, handles, cell_map,
                                   grid_min, max_cell_length, radius, alpha, beta, stride);
}
