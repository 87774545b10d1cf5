#pragma once

#include <vector>

#include "device/vector_math.h"
#include "src/spatial/hash_map.h"
#include "src/spatial/iterate_particles_cells.h"
#include "src/core/particle.h"
#include "src/core/settings.h"
#include "src/filter/sph_kernel.h"

// density[i]: sum of W(|p_j - p_i|, radius) over the delivered pairs, the self pair included.
struct ComputeDensityFunctor {
  using Out_t = float;
  SphKernel kernel{1.0f};
  float3 p_i{};
  float sum = 0.0f;

  void setup(const NeighbourPass& pass) { kernel = SphKernel(pass.radius); }
  void start(int, const float3& p) {
    p_i = p;
    sum = 0.0f;
  }
  void pair(int, const float3& p_j) {
    const float3 R = p_j - p_i;
    const float r2 = dot(R, R);
    if (kernel.outside(r2)) return;  // W is 0 there, and adding 0 leaves the sum as it is
    sum += kernel(std::sqrt(r2));
  }
  Out_t finish() const { return sum; }
};

// Support of a particle by the other views: neighbours from other cameras, facing the same way and
// within one pixel footprint, add 1 minus their tangent-plane distance in footprints. The sum stops
// once it has passed `min_support`.
struct ComputeParticleSupportFunctor {
  using Out_t = float;
  static constexpr bool ignores_own_view = true;
  static inline float min_support = 0.0f;

  const Particle* particles = nullptr;
  const float3* normals = nullptr;
  int i = 0;
  float3 p_i{};
  float3 n_i{};
  int camera_i = 0;
  float s = 0.0f;

  void setup(const NeighbourPass& pass) {
    particles = pass.particles;
    normals = pass.normals;
  }
  void start(int index, const float3& p) {
    i = index;
    p_i = p;
    n_i = normals[index];
    camera_i = particles[index].camera_index;
    s = 0.0f;
  }
  void pair(int j, const float3& p_j) {
    if (s > min_support || j == i || particles[j].camera_index == camera_i) return;
    const float3 n_j = normals[j];
    const float d = dot(n_i, n_j);
    if (d < 0.0f) return;
    const float3 D = p_i - p_j;
    const float r = length(D);
    const float footprint = particles[j].radius;
    if (r > footprint) return;
    const float e = std::fabs(dot(n_j, D)) / footprint;
    const float w = use_normal_dot_weight ? (1.0f - (1.0f - std::fabs(d))) - e : 1.0f - e;
    if (w > 0.0f) s += w;
  }
  Out_t finish() const { return s; }
};

// Prints "  updating particle density" and fills density (size of the set) from the current state.
void update_density(std::vector<float>& density, const std::vector<Particle>& particles, std::vector<float>& offsets,
                    std::vector<float3>& normals, const std::vector<unsigned long long>& cell_keys,
                    const std::vector<int>& cell_prefix_sum, const std::vector<unsigned int>& handles,
                    const HashMap& cell_map, const HashMap& first_cell_map, float3 grid_min, int max_cell_length,
                    float radius, float alpha, float beta, int stride);

// Support of every particle at cell size `radius` (the footprint of one pixel at the average
// depth). Builds its own index and reorders the three arrays into cell order, so support[i] belongs
// to the reordered particles[i].
void compute_particle_support(std::vector<float>& support, std::vector<Particle>& particles,
                              std::vector<float>& offsets, std::vector<float3>& normals, float radius,
                              float min_support);
