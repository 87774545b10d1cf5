#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"
#include "src/core/particle_position.h"
#include "src/core/simd_lanes.h"
#include "src/spatial/cell_index.h"
#include "src/spatial/hash_map.h"
#include "src/spatial/morton.h"
#include "src/spatial/neighbour_batch.h"

// A neighbour pass: the particle state before it, which the functors read, and its settings.
struct NeighbourPass {
  const Particle* particles = nullptr;
  const float* offsets = nullptr;
  const float3* normals = nullptr;
  const float* density = nullptr;     // may be null for passes that don't read it
  float radius = 0.0f;                // kernel radius h, the cell edge of the index walked
  int stride = 1;                     // every stride-th particle of a neighbour run is visited
  float alpha = 0.0f;                 // strength of the data term
  float beta = 0.0f;                  // strength of the collision term between particles facing apart
  bool use_normal_dot_weight = true;  // pair weights scaled by the agreement of the two normals
};

// Functor protocol. A functor declares `Out_t` and `static constexpr bool with_self`, and on a copy
// made for each thread provides:
//   void setup(const NeighbourPass&);                           once per thread
//   void gather(const NeighbourList&);                          once per cell, before its batches
//   void run(const CellBatch&, const NeighbourList&, Out_t*);   out[l] for the lanes in use
// `run` reduces, for each lane's particle i, the pairs (i, j) with j the list's entries in order.
// An entry with j == i is the self pair: a functor with_self takes it, and takes (i, i) once at the
// end where the lane's self is not listed; a functor without self skips it. Settings of its own
// (a relaxation factor, a level) are members of the functor handed to the pass, which every
// thread copies.
// A functor whose pairs from the particle's own view give nothing may declare
//   static constexpr bool ignores_own_view = true;
// the list's runs then carry their view, and runs made only of particles of that view can be
// skipped whole. Such runs gather where many particles of one view sit at one place (at a camera
// centre, for pixels whose initial depth is 0) and would otherwise cost time quadratic in their
// length.
template <typename Functor>
constexpr bool ignores_own_view() {
  if constexpr (requires { Functor::ignores_own_view; }) return Functor::ignores_own_view;
  return false;
}
// A functor whose pairs beyond the pass radius give nothing may declare
//   static constexpr bool radius_bound = true;
// its batches then carry in `entries` only the list entries that may lie within the radius of one
// of their particles. Otherwise `entries` stays empty and the functor reads the whole list.
template <typename Functor>
constexpr bool radius_bound() {
  if constexpr (requires { Functor::radius_bound; }) return Functor::radius_bound;
  return false;
}

// Runs `functor` over the particles of the 27 cells around each particle and hands each result to
// `sink(slot, i, value)`. The walk of iterate_particles_cells below; `cells` must be the index of
// the current positions, so that each cell's run of handles ends where cell_prefix_sum says.
template <typename Functor, bool with_self, typename Sink>
void walk_particles_cells(Functor& functor, Sink&& sink, const CellIndex& cells, const NeighbourPass& pass) {
  static_assert(Functor::with_self == with_self, "the functor serves the other self-pair mode");
  const std::vector<unsigned int>& handles = cells.handles;
  const std::vector<unsigned long long>& cell_keys = cells.cell_keys;
  const std::vector<int>& cell_prefix_sum = cells.cell_prefix_sum;
  const Particle* const particles = pass.particles;
  const int stride = pass.stride;
  const long long n = static_cast<long long>(handles.size());
  const long long c = static_cast<long long>(cell_keys.size());

  // Positions in handle order, formed once per pass: the same float expressions a walk per
  // particle would evaluate per pair, so the results are bit-identical, and read sequentially.
  std::unique_ptr<float3[]> run_pos(new float3[n]);
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) {
    const unsigned int i = handles[k];
    run_pos[k] = particle_position(particles[i], pass.offsets[i]);
  }

  // View of each cell's particles; -1 where views are mixed.
  std::unique_ptr<int[]> cell_view;
  if constexpr (ignores_own_view<Functor>()) {
    cell_view.reset(new int[c]);
#pragma omp parallel for schedule(static)
    for (long long q = 0; q < c; ++q) {
      const long long first = q > 0 ? cell_prefix_sum[q - 1] : 0;
      int view = particles[handles[first]].camera_index;
      for (long long b = first + 1; b < cell_prefix_sum[q] && view != -1; ++b)
        if (particles[handles[b]].camera_index != view) view = -1;
      cell_view[q] = view;
    }
  }

  const float reach2 = squared_reach(pass.radius);
  const int* const cell_end = cell_prefix_sum.data();

#pragma omp parallel
  {
    NeighbourList list;
    CellBatch batch;
    std::vector<int> entries, order;
    Functor local(functor);
    local.setup(pass);
    typename Functor::Out_t out[kLanes];

#pragma omp for schedule(dynamic, 4)
    for (long long q = 0; q < c; ++q) {
      const unsigned long long key = cell_keys[q];
      const unsigned int start = hash_map_find(cells.cell_map, key);
      if (start == hash_map_not_found) {
        std::ostringstream message;
        message << "cell_start is invalid!  key " << key << "   value " << start << "\n";
        throw std::runtime_error(message.str());
      }
      unsigned int x, y, z;
      decode(key, x, y, z);
      if (x == 65535 && y == 65535 && z == 65535) continue;

      // A neighbour cell's run ends where the next cell starts: the first particle whose key
      // differs from the cell's.
      list.clear();
      for (int m = 0; m < 27; ++m) {
        const long long dx = m % 3 - 1, dy = m / 3 % 3 - 1, dz = m / 9 - 1;
        const unsigned int neighbour_start = hash_map_find_bounded(cells.cell_map, encode(x + dx, y + dy, z + dz));
        if (neighbour_start == hash_map_not_found) continue;
        const long long cell = std::upper_bound(cell_end, cell_end + c, static_cast<int>(neighbour_start)) - cell_end;
        const int begin = list.size();
        for (long long b = neighbour_start; b < cell_end[cell]; b += stride)
          list.push(static_cast<int>(handles[b]), run_pos[b]);
        int view = -1;
        if constexpr (ignores_own_view<Functor>()) view = cell_view[cell];
        list.runs[list.run_count++] = {begin, list.size(), view};
      }
      if constexpr (radius_bound<Functor>()) list.compute_bounds();
      local.gather(list);

      const long long length = cell_end[q] - start;
      batch_order(&run_pos[start], length, cells.grid_min, cells.inv_cell, order);
      const long long slot_base = q > 0 ? cell_prefix_sum[q - 1] : 0;
      for (long long k0 = 0; k0 < length; k0 += kLanes) {
        batch.count = static_cast<int>(std::min<long long>(kLanes, length - k0));
        int slot[kLanes];
        for (int l = 0; l < kLanes; ++l) {
          const long long k = order[k0 + std::min(l, batch.count - 1)];
          slot[l] = static_cast<int>(k);
          batch.index[l] = static_cast<int>(handles[start + k]);
          const float3 p = run_pos[start + k];
          batch.x[l] = p.x;
          batch.y[l] = p.y;
          batch.z[l] = p.z;
          // The own run is sampled from its start, so the stride reaches the particle at run
          // position k exactly when k is a multiple of it.
          batch.self_listed[l] = k % stride == 0 ? 1 : 0;
        }
        if constexpr (radius_bound<Functor>()) {
          entries_in_reach(batch, list, reach2, entries);
          batch.entries = entries.data();
          batch.entry_count = static_cast<int>(entries.size());
        }
        local.run(batch, list, out);
        for (int l = 0; l < batch.count; ++l) sink(slot_base + slot[l], batch.index[l], out[l]);
      }
    }
  }
}

// Runs `functor` over the particles of the 27 cells around each particle. Cells are taken from
// cell_keys in a dynamic schedule of 4 cells; the result of the particle at run position k of cell q
// lands in slot k + cell_prefix_sum[q - 1] as (particle index, value). Every `stride`-th particle of a
// neighbour run is visited. With `with_self` the pair (i, i) is delivered exactly once; without it,
// never. The invalid cell is skipped, and its slots keep (0, zero).
// The 27 neighbour runs are looked up and gathered once per cell, and the cell's particles go
// through them in batches of kLanes: the pairs of each particle come in the same order as if it
// walked the cells alone, so the results do not depend on the batching or the thread count.
template <typename Functor, bool with_self>
void iterate_particles_cells(Functor& functor, std::vector<std::pair<int, typename Functor::Out_t>>& results,
                             const CellIndex& cells, const NeighbourPass& pass) {
  results.resize(cells.cell_prefix_sum.back());
  auto sink = [&results](long long slot, int i, const typename Functor::Out_t& value) { results[slot] = {i, value}; };
  walk_particles_cells<Functor, with_self>(functor, sink, cells, pass);
}

// The pass and the merge below in one, without the slots: target[i] gets the value of every
// particle outside the invalid cell, and target[0] the zero value of the invalid cell's slots if it
// has any, as the merge leaves it when it runs in slot order. For passes whose functor doesn't read
// the target.
template <typename Functor, bool with_self>
void iterate_particles_cells_into(Functor& functor, std::vector<typename Functor::Out_t>& target,
                                  const CellIndex& cells, const NeighbourPass& pass) {
  auto sink = [&target](long long, int i, const typename Functor::Out_t& value) { target[i] = value; };
  walk_particles_cells<Functor, with_self>(functor, sink, cells, pass);
  unsigned int x, y, z;
  decode(cells.cell_keys.back(), x, y, z);
  if (x == 65535 && y == 65535 && z == 65535) target[0] = typename Functor::Out_t{};
}

// Writes each slot's value to its particle: target[results[s].first] = results[s].second.
template <typename T>
void merge_results(std::vector<T>& target, const std::vector<std::pair<int, T>>& results) {
  const long long count = static_cast<long long>(results.size());
#pragma omp parallel for schedule(static)
  for (long long s = 0; s < count; ++s) target[results[s].first] = results[s].second;
}
