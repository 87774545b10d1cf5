#pragma once

#include <vector>

#include "device/vector_math.h"
#include "src/spatial/hash_map.h"
#include "src/spatial/iterate_particles_cells.h"
#include "src/core/particle.h"
#include "src/core/particle_position.h"
#include "src/filter/sph_kernel.h"

// Normal from the weighted second moments about a particle: the eigenvector of the smallest
// eigenvalue, turned towards the particle's camera; init_normal if it isn't finite. `lower` holds the
// lower triangle of the matrix row by row: (0,0), (1,0), (1,1), (2,0), (2,1), (2,2).
float3 normal_from_moments(const float lower[6], const Particle& particle);

// Re-estimates the normal of a particle from the pairs around it. Every delivered pair counts as a
// visit; with fewer than 8 visits the old normal stays. Pairs with opposite normals don't enter the
// moments; with `use_dot_weight` a pair's kernel weight is scaled by dot(n_i, n_j).
template <bool first_iteration, bool use_dot_weight>
struct ComputeNormalsFunctor {
  using Out_t = float3;
  SphKernel kernel{1.0f};
  const Particle* particles = nullptr;
  const float3* normals = nullptr;
  int i = 0;
  float3 p_i{};
  float3 n_i{};
  float C[6] = {};
  int visits = 0;

  void setup(const NeighbourPass& pass) {
    kernel = SphKernel(pass.radius);
    particles = pass.particles;
    normals = pass.normals;
  }
  void start(int index, const float3& p) {
    i = index;
    p_i = p;
    n_i = normals[index];
    for (float& v : C) v = 0.0f;
    visits = 0;
  }
  void pair(int j, const float3& p_j) {
    ++visits;
    if (j == i) return;
    const float c = dot(n_i, normals[j]);
    if (c < 0.0f) return;
    const float3 R = p_j - p_i;
    const float r2 = dot(R, R);
    // Beyond the radius the weight is 0 and the moments gain exact zeros: skip, unless a
    // non-finite weight factor would have turned them into NaN.
    if (kernel.outside(r2) && (!use_dot_weight || is_finite_value(c))) return;
    float w = kernel(std::sqrt(r2));
    if constexpr (use_dot_weight) w = c * w;
    C[0] += w * R.x * R.x;
    C[1] += w * R.y * R.x;
    C[2] += w * R.y * R.y;
    C[3] += w * R.z * R.x;
    C[4] += w * R.z * R.y;
    C[5] += w * R.z * R.z;
  }
  Out_t finish() const {
    if (visits < 8) return n_i;
    return normal_from_moments(C, particles[i]);
  }
};

// Prints "  computing normals" and replaces every normal by its estimate from the old normals. The
// first iteration never weights by the normals; later ones do if use_normal_dot_weight is set.
void compute_normals(const std::vector<Particle>& particles, std::vector<float>& offsets,
                     std::vector<float3>& normals, const std::vector<unsigned long long>& cell_keys,
                     const std::vector<int>& cell_prefix_sum, const std::vector<unsigned int>& handles,
                     const HashMap& cell_map, float3 grid_min, int max_cell_length, float radius, float alpha,
                     float beta, bool first_iteration, int stride);
