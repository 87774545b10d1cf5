#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "device/vector_math.h"
#include "src/core/particle.h"
#include "src/filter/normals.h"
#include "src/filter/ray_frame.h"
#include "src/filter/records_minimiser.h"
#include "src/filter/sph_kernel.h"
#include "src/spatial/cell_index.h"
#include "src/spatial/iterate_particles_cells.h"

// Energy of particle i in its own offset t, all others fixed:
//   E_i(t) = alpha |t| + sum_j ( w_i / rho_i |a(t)| g(a) + w_j / rho_j |b(t)| g(b) )
// with a = dot(n_i, p_j - p_i) and b = -dot(n_j, p_j - p_i). g is 1 for pairs facing the same way;
// for opposite normals it is beta on the penetrating side and 0 on the other (collision term).

// What both position functors read of a pass, bound once per thread, and the normals and inverse
// densities of the current cell's neighbours.
struct PositionPass {
  SphKernel kernel{1.0f};
  const Particle* particles = nullptr;
  const float3* normals = nullptr;
  const float* offsets = nullptr;
  const float* density = nullptr;
  float radius = 0.0f;
  float alpha = 0.0f;
  float beta = 0.0f;
  NeighbourNormals neighbours;

  void bind(const NeighbourPass& pass) {
    kernel = SphKernel(pass.radius);
    particles = pass.particles;
    normals = pass.normals;
    offsets = pass.offsets;
    density = pass.density;
    radius = pass.radius;
    alpha = pass.alpha;
    beta = pass.beta;
  }
  void gather(const NeighbourList& list) { neighbours.gather(list, normals, density); }
};

// The particles of a batch as the position kernels read them, one lane each.
struct PositionLanes {
  float n[3][kLanes];        // n_i
  float d[3][kLanes];        // d_i, the ray towards the camera
  float t[kLanes];           // t_i
  float inv_rho[kLanes];     // 1 / rho_i
  float n_dot_d[kLanes];     // dot(n_i, d_i)
  float dn_phi[3][kLanes];   // derivatives of n_i by its angles in the ray frame (gradient only)
  float dn_theta[3][kLanes];

  // With `angles`, the normal's angles of each lane's particle also go to angles[i].
  void fill(const PositionPass& pass, const CellBatch& batch, bool with_angles, NormalAngles* angles = nullptr);
};

// The breakpoints of each lane's particle, in the order of its pairs, and the sum of the weights
// of the terms that slope down below their breakpoint, summed in the same order.
struct RecordLanes {
  std::vector<Minimum> buffer;  // kLanes rows of `capacity`
  int capacity = 0;
  int count[kLanes];
  float down_weight[kLanes];
  MinimiserScratch scratch;

  Minimum* row(int lane) { return buffer.data() + static_cast<size_t>(lane) * capacity; }
};

// Appends each lane's records for the pairs of the list (at most two per pair).
void exact_step_records(const PositionPass& pass, bool use_dot_weight, const PositionLanes& lanes,
                        const CellBatch& batch, const NeighbourList& list, RecordLanes& records);

// Exact step: the energy is piecewise linear and convex in t, its minimiser a weighted median of
// the breakpoints. The result is relaxed towards the old t by `omega`.
template <bool use_dot_weight>
struct UpdateParticlePosFunctor : PositionPass {
  using Out_t = float;
  static constexpr bool with_self = false;
  static constexpr bool radius_bound = true;

  float omega = 1.0f;  // 1 takes the minimiser, 0.5 the midpoint between it and the old t

  PositionLanes lanes;
  RecordLanes records;

  void setup(const NeighbourPass& pass) { bind(pass); }
  void gather(const NeighbourList& list) {
    PositionPass::gather(list);
    // Room for two records per pair and the data term.
    const int capacity = 2 * list.size() + 1;
    if (capacity > records.capacity) {
      records.capacity = capacity;
      records.buffer.resize(static_cast<size_t>(kLanes) * capacity);
    }
  }
  void run(const CellBatch& batch, const NeighbourList& list, Out_t* out) {
    lanes.fill(*this, batch, false);
    exact_step_records(*this, use_dot_weight, lanes, batch, list, records);
    for (int l = 0; l < batch.count; ++l) {
      const float t_i = lanes.t[l];
      const int m = records.count[l];
      if (m == 0) {  // no neighbours: not even the data term moves the particle
        out[l] = t_i;
        continue;
      }
      Minimum* row = records.row(l);
      row[m] = {0.0f, 2.0f * alpha};  // the data term, alpha |t|
      const float slope = -(records.down_weight[l] + alpha);
      out[l] = exact_step_minimiser(row, m + 1, slope, records.scratch) * omega + (1.0f - omega) * t_i;
    }
  }
};

// Gradient of the smoothed energy (|x| as sqrt(x^2 + 1e-6)) by t and by the two angles of the
// normal in the ray frame: x = dE/dt, y = dE/dphi, z = dE/dtheta.
void gradient_lanes(const PositionPass& pass, bool use_dot_weight, const PositionLanes& lanes,
                    const CellBatch& batch, const NeighbourList& list, float gradient[3][kLanes]);

template <bool use_dot_weight>
struct ComputeGradientFunctor : PositionPass {
  using Out_t = float3;
  static constexpr bool with_self = false;
  static constexpr bool radius_bound = true;
  static constexpr float eps = 1e-6f;

  NormalAngles* angles = nullptr;  // where set, each particle's normal angles are kept there for the step

  PositionLanes lanes;

  void setup(const NeighbourPass& pass) { bind(pass); }
  void run(const CellBatch& batch, const NeighbourList& list, Out_t* out) {
    lanes.fill(*this, batch, true, angles);
    float g[3][kLanes];
    gradient_lanes(*this, use_dot_weight, lanes, batch, list, g);
    for (int l = 0; l < batch.count; ++l) {
      const float t_i = lanes.t[l];
      out[l] = {alpha * t_i / std::sqrt(t_i * t_i + eps) + g[0][l], g[1][l], g[2][l]};
    }
  }
};

// Prints "  updating particle positions", runs the exact step with relaxation `omega` on the state
// of `pass` and writes the new offsets to new_offsets.
void update_particles(std::vector<float>& new_offsets, const CellIndex& cells, const NeighbourPass& pass, float omega);

// The gradient step for every result (i, g): t moves from pass.offsets[i] by -g.x * timestep, cut to
// pass.radius, into new_offsets[i]; the normal's angles move by -timestep * (g.y, g.z), and the
// turned normal is kept only if it still faces the camera.
// `angles`, where given, holds each particle's normal angles as the gradient pass found them.
void gradient_step(std::vector<float>& new_offsets, std::vector<float3>& normals, const NeighbourPass& pass,
                   const std::vector<std::pair<int, float3>>& results, float timestep,
                   const NormalAngles* angles = nullptr);

// Prints "  updating particle positions (gradient descent)" and takes one gradient step of length
// `timestep` from the state of `pass`: new_offsets gets the offsets moved by at most the radius, and
// normals (the array pass.normals points into) turn in place unless that would make them face away
// from their camera.
void update_particles_gd(std::vector<float>& new_offsets, std::vector<float3>& normals, const CellIndex& cells,
                         const NeighbourPass& pass, float timestep);
