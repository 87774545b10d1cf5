#include "src/filter/density.h"

#include <algorithm>
#include <iostream>

#include "src/core/settings.h"
#include "src/core/viewer_hooks.h"

namespace {

// sum + W(|R|, h) in the lanes where R lies within the kernel's reach.
LANE_INLINE lane_float add_kernel_term(const SphKernel& kernel, const lane_float& sum, const lane_float& dx,
                                       const lane_float& dy, const lane_float& dz) {
  const lane_float r2 = dx * dx + dy * dy + dz * dz;
  return kernel.outside(r2) ? sum : sum + kernel(lane_sqrt(r2));
}

LANE_KERNEL void density_lanes(const SphKernel& kernel, const CellBatch& batch, const NeighbourList& list,
                               float* out) {
  const lane_float px = lane_load(batch.x), py = lane_load(batch.y), pz = lane_load(batch.z);
  const float* xs = list.x.data();
  const float* ys = list.y.data();
  const float* zs = list.z.data();
  lane_float sum{};
  for (int q = 0; q < batch.entry_count; ++q) {
    const int e = batch.entries[q];
    sum = add_kernel_term(kernel, sum, xs[e] - px, ys[e] - py, zs[e] - pz);
  }
  const lane_int unlisted = lane_load(batch.self_listed) == 0;
  sum = unlisted ? add_kernel_term(kernel, sum, px - px, py - py, pz - pz) : sum;
  lane_store(out, sum);
}

}  // namespace

void ComputeDensityFunctor::run(const CellBatch& batch, const NeighbourList& list, Out_t* out) const {
  float all[kLanes];
  density_lanes(kernel, batch, list, all);
  for (int l = 0; l < batch.count; ++l) out[l] = all[l];
}

void ComputeParticleSupportFunctor::run(const CellBatch& batch, const NeighbourList& list, Out_t* out) const {
  for (int l = 0; l < batch.count; ++l) {
    const int i = batch.index[l];
    const float3 p_i = {batch.x[l], batch.y[l], batch.z[l]};
    const float3 n_i = normals[i];
    const int camera_i = particles[i].camera_index;
    float s = 0.0f;
    // Runs of the own view give nothing, and once the sum has passed the level no pair adds to it;
    // the self pair gives nothing either.
    for (int r = 0; r < list.run_count && !(s > min_support); ++r) {
      const NeighbourList::Run& run = list.runs[r];
      if (run.view == camera_i) continue;
      for (int e = run.begin; e < run.end && !(s > min_support); ++e) {
        const int j = list.index[e];
        if (j == i || particles[j].camera_index == camera_i) continue;
        const float3 n_j = normals[j];
        const float d = dot(n_i, n_j);
        if (d < 0.0f) continue;
        const float3 D = p_i - float3{list.x[e], list.y[e], list.z[e]};
        const float r = length(D);
        const float footprint = particles[j].radius;
        if (r > footprint) continue;
        const float e_plane = std::fabs(dot(n_j, D)) / footprint;
        const float w = use_dot_weight ? (1.0f - (1.0f - std::fabs(d))) - e_plane : 1.0f - e_plane;
        if (w > 0.0f) s += w;
      }
    }
    out[l] = s;
  }
}

void update_density(std::vector<float>& density, const CellIndex& cells, const NeighbourPass& pass) {
  std::cout << "  updating particle density" << std::endl;
  ComputeDensityFunctor functor;
  iterate_particles_cells_into<ComputeDensityFunctor, true>(functor, density, cells, pass);
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
                              float min_support, bool use_normal_dot_weight) {
  const long long n = static_cast<long long>(particles.size());
  CellIndex cells = cell_grid(particles, offsets, radius);
  compute_cell_keys(cells.keys, cells.handles, particles, offsets, cells.grid_min, cells.inv_cell);
  sort_particle_handles(cells.handles, cells.keys);
  // In place: the set before filtering is the largest of a run, and it is never held twice.
  reorder_in_place(particles, offsets, normals, cells.handles);

  support.assign(n, 0.0f);
  if (n > 0) {
    create_cell_start_index_table(cells.cell_keys, cells.cell_starts, cells.keys);
    std::vector<unsigned long long>().swap(cells.keys);
    create_cell_size_prefix_sum(cells.cell_prefix_sum, cells.cell_starts, static_cast<int>(n));
    cells.cell_map = create_hash_map(cells.cell_keys, cells.cell_starts, 0.8f);

    ComputeParticleSupportFunctor functor;
    functor.min_support = min_support;
    const NeighbourPass pass{.particles = particles.data(),
                             .offsets = offsets.data(),
                             .normals = normals.data(),
                             .radius = radius,
                             .use_normal_dot_weight = use_normal_dot_weight};
    iterate_particles_cells_into<ComputeParticleSupportFunctor, true>(functor, support, cells, pass);
  }

  // The support view: the particles in grey by their support, shown to the viewer hook. The grey
  // is set in place and the colours restored afterwards, which spares a copy of the set.
  float largest_support = 0.0f;
  for (float s : support) largest_support = std::max(largest_support, s);
  std::vector<uchar4> colors(n);
#pragma omp parallel for schedule(static)
  for (long long i = 0; i < n; ++i) {
    colors[i] = particles[i].color;
    const unsigned char grey = grey_byte(support[i] / largest_support * 255.0f);
    particles[i].color.x = grey;
    particles[i].color.y = grey;
    particles[i].color.z = grey;
  }
  sendParticlesToLumvik(particles, offsets, normals, "particles_support", debug_lumvik_particle_iteration++);
#pragma omp parallel for schedule(static)
  for (long long i = 0; i < n; ++i) particles[i].color = colors[i];
}
