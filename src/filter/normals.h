#pragma once

#include <vector>

#include "device/vector_math.h"
#include "src/core/particle.h"
#include "src/core/particle_position.h"
#include "src/filter/sph_kernel.h"
#include "src/spatial/cell_index.h"
#include "src/spatial/iterate_particles_cells.h"

// Normal from the weighted second moments about a particle: the eigenvector of the smallest
// eigenvalue, turned towards the particle's camera; init_normal if it isn't finite. `lower` holds the
// lower triangle of the matrix row by row: (0,0), (1,0), (1,1), (2,0), (2,1), (2,2).
float3 normal_from_moments(const float lower[6], const Particle& particle);

// Normals of a cell's neighbour list, gathered once per cell, and 1 / density where a pass reads
// it: the same float values the one-particle form reads per pair.
struct NeighbourNormals {
  std::vector<float> x, y, z, inv_density;

  void gather(const NeighbourList& list, const float3* normals, const float* density);
};

// Moments of the pairs of each lane's particle about the particle and the count of delivered pairs,
// for ComputeNormalsFunctor; `lower` as in normal_from_moments, one row per lane.
void normal_moments(const SphKernel& kernel, bool use_dot_weight, const float3* normals,
                    const NeighbourNormals& neighbour_normals, const CellBatch& batch, const NeighbourList& list,
                    float lower[6][kLanes]);

// Re-estimates the normal of a particle from the pairs around it. Every delivered pair counts as a
// visit; with fewer than 8 visits the old normal stays. Pairs with opposite normals don't enter the
// moments; with `use_dot_weight` a pair's kernel weight is scaled by dot(n_i, n_j).
template <bool first_iteration, bool use_dot_weight>
struct ComputeNormalsFunctor {
  using Out_t = float3;
  static constexpr bool with_self = true;
  static constexpr bool radius_bound = true;
  SphKernel kernel{1.0f};
  const Particle* particles = nullptr;
  const float3* normals = nullptr;
  NeighbourNormals neighbour_normals;

  void setup(const NeighbourPass& pass) {
    kernel = SphKernel(pass.radius);
    particles = pass.particles;
    normals = pass.normals;
  }
  void gather(const NeighbourList& list) { neighbour_normals.gather(list, normals, nullptr); }
  void run(const CellBatch& batch, const NeighbourList& list, Out_t* out) const {
    float lower[6][kLanes];
    normal_moments(kernel, use_dot_weight, normals, neighbour_normals, batch, list, lower);
    for (int l = 0; l < batch.count; ++l) {
      const int i = batch.index[l];
      const int visits = list.size() + 1 - batch.self_listed[l];
      if (visits < 8) {
        out[l] = normals[i];
        continue;
      }
      const float C[6] = {lower[0][l], lower[1][l], lower[2][l], lower[3][l], lower[4][l], lower[5][l]};
      out[l] = normal_from_moments(C, particles[i]);
    }
  }
};

// Prints "  computing normals" and replaces every normal by its estimate from the normals of the
// pass (the old ones: normals is usually the array pass.normals points into). The first iteration
// never weights by the normals; later ones do if the pass says so.
void compute_normals(std::vector<float3>& normals, const CellIndex& cells, const NeighbourPass& pass,
                     bool first_iteration);
