#include "src/filter/normals.h"

#include <iostream>

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

void NeighbourNormals::gather(const NeighbourList& list, const float3* normals, const float* density) {
  const int count = list.size();
  x.resize(count);
  y.resize(count);
  z.resize(count);
  for (int e = 0; e < count; ++e) {
    const float3 n = normals[list.index[e]];
    x[e] = n.x;
    y[e] = n.y;
    z[e] = n.z;
  }
  if (!density) return;
  inv_density.resize(count);
  for (int e = 0; e < count; ++e) inv_density[e] = 1.0f / density[list.index[e]];
}

LANE_KERNEL void normal_moments(const SphKernel& kernel, bool use_dot_weight, const float3* normals,
                                const NeighbourNormals& neighbour_normals, const CellBatch& batch,
                                const NeighbourList& list, float lower[6][kLanes]) {
  const lane_float px = lane_load(batch.x), py = lane_load(batch.y), pz = lane_load(batch.z);
  const lane_int own = lane_load(batch.index);
  lane_float nix, niy, niz;
  for (int l = 0; l < kLanes; ++l) {
    const float3 n = normals[batch.index[l]];
    nix[l] = n.x;
    niy[l] = n.y;
    niz[l] = n.z;
  }
  lane_float C0{}, C1{}, C2{}, C3{}, C4{}, C5{};
  for (int q = 0; q < batch.entry_count; ++q) {
    const int e = batch.entries[q];
    const float njx = neighbour_normals.x[e], njy = neighbour_normals.y[e], njz = neighbour_normals.z[e];
    const lane_float c = nix * njx + niy * njy + niz * njz;
    const lane_float Rx = list.x[e] - px, Ry = list.y[e] - py, Rz = list.z[e] - pz;
    const lane_float r2 = Rx * Rx + Ry * Ry + Rz * Rz;
    // Beyond the radius the weight is 0 and the moments would gain exact zeros: skipped, unless a
    // non-finite weight factor would have turned them into NaN.
    lane_int beyond = kernel.outside(r2);
    if (use_dot_weight) beyond &= lane_fabs(c) <= 3.4028235e38f;
    const lane_int skip = (own == list.index[e]) | (c < 0.0f) | beyond;
    lane_float w = kernel(lane_sqrt(r2));
    if (use_dot_weight) w = c * w;
    C0 = skip ? C0 : C0 + w * Rx * Rx;
    C1 = skip ? C1 : C1 + w * Ry * Rx;
    C2 = skip ? C2 : C2 + w * Ry * Ry;
    C3 = skip ? C3 : C3 + w * Rz * Rx;
    C4 = skip ? C4 : C4 + w * Rz * Ry;
    C5 = skip ? C5 : C5 + w * Rz * Rz;
  }
  lane_store(lower[0], C0);
  lane_store(lower[1], C1);
  lane_store(lower[2], C2);
  lane_store(lower[3], C3);
  lane_store(lower[4], C4);
  lane_store(lower[5], C5);
}

namespace {

template <bool first_iteration, bool use_dot_weight>
void run_normals_pass(std::vector<float3>& normals, const CellIndex& cells, const NeighbourPass& pass) {
  using Functor = ComputeNormalsFunctor<first_iteration, use_dot_weight>;
  Functor functor;
  std::vector<std::pair<int, float3>> results;
  iterate_particles_cells<Functor, true>(functor, results, cells, pass);
  merge_results(normals, results);
}

}  // namespace

void compute_normals(std::vector<float3>& normals, const CellIndex& cells, const NeighbourPass& pass,
                     bool first_iteration) {
  std::cout << "  computing normals" << std::endl;
  if (first_iteration)
    run_normals_pass<true, false>(normals, cells, pass);
  else if (pass.use_normal_dot_weight)
    run_normals_pass<false, true>(normals, cells, pass);
  else
    run_normals_pass<false, false>(normals, cells, pass);
}
