#include "src/filter/position_update.h"

#include <cmath>
#include <iostream>

#include "src/core/settings.h"

namespace {

template <bool use_dot_weight>
void run_exact_step(std::vector<float>& new_offsets, const std::vector<Particle>& particles,
                    std::vector<float>& density, std::vector<float>& offsets, std::vector<float3>& normals,
                    const std::vector<unsigned long long>& cell_keys, const std::vector<int>& cell_prefix_sum,
                    const std::vector<unsigned int>& handles, const HashMap& cell_map, const HashMap& first_cell_map,
                    float3 grid_min, int max_cell_length, float radius, float alpha, float beta, float omega,
                    int stride) {
  using Functor = UpdateParticlePosFunctor<use_dot_weight>;
  Functor::omega = omega;
  Functor functor;
  std::vector<std::pair<int, float>> results;
  iterate_particles_cells<Functor, false>(functor, results, cell_keys, cell_prefix_sum, density, offsets, normals,
                                          particles, handles, cell_map, first_cell_map, grid_min, max_cell_length,
                                          radius, alpha, beta, stride);
  merge_results(new_offsets, results);
}

template <bool use_dot_weight>
void run_gradient_pass(std::vector<std::pair<int, float3>>& results, const std::vector<Particle>& particles,
                       std::vector<float>& density, std::vector<float>& offsets, std::vector<float3>& normals,
                       const std::vector<unsigned long long>& cell_keys, const std::vector<int>& cell_prefix_sum,
                       const std::vector<unsigned int>& handles, const HashMap& cell_map,
                       const HashMap& first_cell_map, float3 grid_min, int max_cell_length, float radius, float alpha,
                       float beta, int stride) {
  using Functor = ComputeGradientFunctor<use_dot_weight>;
  Functor functor;
  iterate_particles_cells<Functor, false>(functor, results, cell_keys, cell_prefix_sum, density, offsets, normals,
                                          particles, handles, cell_map, first_cell_map, grid_min, max_cell_length,
                                          radius, alpha, beta, stride);
}

}  // namespace

void update_particles(std::vector<float>& new_offsets, const std::vector<Particle>& particles,
                      std::vector<float>& density, std::vector<float>& offsets, std::vector<float3>& normals,
                      const std::vector<unsigned long long>& cell_keys, const std::vector<int>& cell_prefix_sum,
                      const std::vector<unsigned int>& handles, const HashMap& cell_map,
                      const HashMap& first_cell_map, float3 grid_min, int max_cell_length, float radius, float alpha,
                      float beta, float omega, int stride) {
  std::cout << "  updating particle positions" << std::endl;
  if (use_normal_dot_weight)
    run_exact_step<true>(new_offsets, particles, density, offsets, normals, cell_keys, cell_prefix_sum, handles,
                         cell_map, first_cell_map, grid_min, max_cell_length, radius, alpha, beta, omega, stride);
  else
    run_exact_step<false>(new_offsets, particles, density, offsets, normals, cell_keys, cell_prefix_sum, handles,
                          cell_map, first_cell_map, grid_min, max_cell_length, radius, alpha, beta, omega, stride);
}

void update_particles_gd(std::vector<float>& new_offsets, const std::vector<Particle>& particles,
                         std::vector<float>& density, std::vector<float>& offsets, std::vector<float3>& normals,
                         const std::vector<unsigned long long>& cell_keys, const std::vector<int>& cell_prefix_sum,
                         const std::vector<unsigned int>& handles, const HashMap& cell_map,
                         const HashMap& first_cell_map, float3 grid_min, int max_cell_length, float radius,
                         float alpha, float beta, float /*unused*/, int stride, float timestep) {
  std::cout << "  updating particle positions (gradient descent)" << std::endl;
  std::vector<std::pair<int, float3>> results;
  if (use_normal_dot_weight)
    run_gradient_pass<true>(results, particles, density, offsets, normals, cell_keys, cell_prefix_sum, handles,
                            cell_map, first_cell_map, grid_min, max_cell_length, radius, alpha, beta, stride);
  else
    run_gradient_pass<false>(results, particles, density, offsets, normals, cell_keys, cell_prefix_sum, handles,
                             cell_map, first_cell_map, grid_min, max_cell_length, radius, alpha, beta, stride);

  gradient_step(new_offsets, offsets, normals, particles, results, radius, timestep);
}

void gradient_step(std::vector<float>& new_offsets, const std::vector<float>& offsets, std::vector<float3>& normals,
                   const std::vector<Particle>& particles, const std::vector<std::pair<int, float3>>& results,
                   float radius, float timestep) {
  // Each result touches only its own particle's offset and normal.
  const long long count = static_cast<long long>(results.size());
#pragma omp parallel for schedule(static)
  for (long long s = 0; s < count; ++s) {
    const int i = results[s].first;
    const float3 g = results[s].second;
    float step = -g.x * timestep;
    if (std::fabs(step) > radius) step = std::copysign(radius, step);  // NaN passes unclamped
    new_offsets[i] = offsets[i] + step;

    const float3 d = particles[i].dir;
    const RayFrame frame = ray_frame(d);
    const NormalAngles angles = normal_angles(normals[i], d, frame);
    const float phi2 = angles.phi - timestep * g.y;
    const float theta2 = angles.theta - timestep * g.z;
    const float3 n2 = normal_from_angles(phi2, theta2, d, frame);
    if (dot(n2, d) > 0.0f) normals[i] = n2;  // a normal never turns away from its camera
  }
}
