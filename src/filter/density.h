#pragma once

#include <vector>

#include "device/vector_math.h"
#include "src/core/particle.h"
#include "src/filter/sph_kernel.h"
#include "src/spatial/cell_index.h"
#include "src/spatial/iterate_particles_cells.h"

// density[i]: sum of W(|p_j - p_i|, radius) over the delivered pairs, the self pair included.
struct ComputeDensityFunctor {
  using Out_t = float;
  static constexpr bool with_self = true;
  static constexpr bool radius_bound = true;
  SphKernel kernel{1.0f};

  void setup(const NeighbourPass& pass) { kernel = SphKernel(pass.radius); }
  void gather(const NeighbourList&) {}
  void run(const CellBatch& batch, const NeighbourList& list, Out_t* out) const;
};

// Support of a particle by the other views: neighbours from other cameras, facing the same way and
// within one pixel footprint, add 1 (|dot(n_i, n_j)| with the pass's dot weight) minus their
// tangent-plane distance in footprints. The sum stops once it has passed `min_support`.
struct ComputeParticleSupportFunctor {
  using Out_t = float;
  static constexpr bool with_self = true;
  static constexpr bool ignores_own_view = true;

  float min_support = 0.0f;
  const Particle* particles = nullptr;
  const float3* normals = nullptr;
  bool use_dot_weight = true;

  void setup(const NeighbourPass& pass) {
    particles = pass.particles;
    normals = pass.normals;
    use_dot_weight = pass.use_normal_dot_weight;
  }
  void gather(const NeighbourList&) {}
  void run(const CellBatch& batch, const NeighbourList& list, Out_t* out) const;
};

// Prints "  updating particle density" and fills density (size of the set) from the state of `pass`.
void update_density(std::vector<float>& density, const CellIndex& cells, const NeighbourPass& pass);

// Support of every particle at cell size `radius` (the footprint of one pixel at the average
// depth), each sum stopping once above `min_support`. Builds its own index and reorders the three
// arrays into cell order, so support[i] belongs to the reordered particles[i].
void compute_particle_support(std::vector<float>& support, std::vector<Particle>& particles,
                              std::vector<float>& offsets, std::vector<float3>& normals, float radius,
                              float min_support, bool use_normal_dot_weight);
