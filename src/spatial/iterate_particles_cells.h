#pragma once

#include <cstring>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "device/vector_types.h"
#include "src/spatial/cell_index.h"
#include "src/spatial/hash_map.h"
#include "src/spatial/morton.h"
#include "src/core/particle.h"
#include "src/core/particle_position.h"

// What a functor may read during a neighbour pass: the particle state before the pass.
struct NeighbourPass {
  const Particle* particles = nullptr;
  const float* offsets = nullptr;
  const float3* normals = nullptr;
  const float* density = nullptr;  // may be null for passes that don't read it
  float radius = 0.0f;
  float alpha = 0.0f;
  float beta = 0.0f;
  int max_cell_length = 0;
};

// Functor protocol. A functor declares `Out_t` and, on a copy made for each thread:
//   void setup(const NeighbourPass&);        once per thread
//   void start(int i, const float3& p_i);    for each particle
//   void pair(int j, const float3& p_j);     for each neighbour delivered
//   Out_t finish();                          the particle's result
// Per-particle state lives in the copy; static members carry settings of a pass.
// A functor whose pairs from the particle's own view give nothing may declare
//   static constexpr bool ignores_own_view = true;
// neighbour runs made only of particles of that view are then skipped whole. Such runs gather
// where many particles of one view sit at one place (at a camera centre, for pixels whose initial
// depth is 0) and would otherwise cost time quadratic in their length.
template <typename Functor>
constexpr bool ignores_own_view() {
  if constexpr (requires { Functor::ignores_own_view; }) return Functor::ignores_own_view;
  return false;
}

// Runs `functor` over the particles of the 27 cells around each particle. Cells are taken from
// cell_keys in a dynamic schedule of 4 cells; the result of the particle at run position k of cell q
// lands in slot k + cell_prefix_sum[q - 1] as (particle index, value). Every `stride`-th particle of a
// neighbour run is visited. With `with_self` the pair (i, i) is delivered exactly once; without it,
// never. The invalid cell is skipped, and its slots keep (0, zero).
template <typename Functor, bool with_self>
void iterate_particles_cells(Functor& functor, std::vector<std::pair<int, typename Functor::Out_t>>& results,
                             const std::vector<unsigned long long>& cell_keys,
                             const std::vector<int>& cell_prefix_sum, const std::vector<float>& density,
                             const std::vector<float>& offsets, const std::vector<float3>& normals,
                             const std::vector<Particle>& particles, const std::vector<unsigned int>& handles,
                             const HashMap& cell_map, const HashMap& first_cell_map, float3 grid_min,
                             int max_cell_length, float radius, float alpha, float beta, int stride) {
  (void)first_cell_map;  // kept for the interface; no functor reads it
  results.resize(cell_prefix_sum.back());
  const float inv_cell = 1.0f / radius;
  const long long n = static_cast<long long>(handles.size());
  const long long c = static_cast<long long>(cell_keys.size());

  // Positions and keys in handle order, formed once per pass. They are the same float expressions
  // the walk would evaluate per pair, so the results are bit-identical and the walk reads them
  // sequentially.
  std::unique_ptr<float3[]> run_pos(new float3[n]);
  std::unique_ptr<unsigned long long[]> run_key(new unsigned long long[n]);
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) {
    const unsigned int i = handles[k];
    const Particle& p = particles[i];
    const float t = offsets[i];
    const float3 q = particle_position(p, t);
    run_pos[k] = q;
    run_key[k] = is_finite_value(p.pos.x) && is_finite_value(t) ? cell_key(q, grid_min, inv_cell) : invalid_cell_key;
  }

  // View of each cell's particles, at the cell's first position; -1 where views are mixed.
  std::unique_ptr<int[]> run_view;
  if constexpr (ignores_own_view<Functor>()) {
    run_view.reset(new int[n]);
#pragma omp parallel for schedule(static)
    for (long long q = 0; q < c; ++q) {
      const long long first = q > 0 ? cell_prefix_sum[q - 1] : 0;
      int view = particles[handles[first]].camera_index;
      for (long long b = first + 1; b < cell_prefix_sum[q] && view != -1; ++b)
        if (particles[handles[b]].camera_index != view) view = -1;
      run_view[first] = view;
    }
  }

  NeighbourPass pass;
  pass.particles = particles.data();
  pass.offsets = offsets.data();
  pass.normals = normals.data();
  pass.density = density.empty() ? nullptr : density.data();
  pass.radius = radius;
  pass.alpha = alpha;
  pass.beta = beta;
  pass.max_cell_length = max_cell_length;

  const unsigned long long run_step = static_cast<unsigned long long>(stride);

#pragma omp parallel
  {
    unsigned long long neighbour_key[27];
    unsigned int neighbour_start[27];
    std::memset(neighbour_key, 0xFF, sizeof(neighbour_key));
    std::memset(neighbour_start, 0xFF, sizeof(neighbour_start));
    Functor local(functor);
    local.setup(pass);

#pragma omp for schedule(dynamic, 4)
    for (long long q = 0; q < c; ++q) {
      const unsigned long long key = cell_keys[q];
      const unsigned int start = hash_map_find(cell_map, key);
      if (start == hash_map_not_found) {
        std::ostringstream message;
        message << "cell_start is invalid!  key " << key << "   value " << start << "\n";
        throw std::runtime_error(message.str());
      }
      unsigned int x, y, z;
      decode(key, x, y, z);
      if (x == 65535 && y == 65535 && z == 65535) continue;

      for (int m = 0; m < 27; ++m) {
        const long long dx = m % 3 - 1, dy = m / 3 % 3 - 1, dz = m / 9 - 1;
        neighbour_key[m] = encode(x + dx, y + dy, z + dz);
        neighbour_start[m] = hash_map_find_bounded(cell_map, neighbour_key[m]);
      }

      const long long slot_base = q > 0 ? cell_prefix_sum[q - 1] : 0;
      for (long long k = 0; start + k < n; ++k) {
        const unsigned long long own = start + k;
        if (run_key[own] != key) break;
        const int i = static_cast<int>(handles[own]);
        const float3 p_i = run_pos[own];
        auto& result = results[slot_base + k];
        result.first = i;
        local.start(i, p_i);
        bool self_delivered = false;
        for (int m = 0; m < 27; ++m) {
          if (neighbour_start[m] == hash_map_not_found) continue;
          if constexpr (ignores_own_view<Functor>()) {
            if (run_view[neighbour_start[m]] == particles[i].camera_index) continue;
          }
          const unsigned long long cell = neighbour_key[m];
          for (unsigned long long b = neighbour_start[m]; b < static_cast<unsigned long long>(n); b += run_step) {
            if (run_key[b] != cell) break;
            const int j = static_cast<int>(handles[b]);
            if (j == i) {
              if constexpr (!with_self) continue;
              self_delivered = true;
            }
            local.pair(j, run_pos[b]);
          }
        }
        if constexpr (with_self) {
          if (!self_delivered) local.pair(i, p_i);
        }
        result.second = local.finish();
      }
    }
  }
}

// Writes each slot's value to its particle: target[results[s].first] = results[s].second.
template <typename T>
void merge_results(std::vector<T>& target, const std::vector<std::pair<int, T>>& results) {
  const long long count = static_cast<long long>(results.size());
#pragma omp parallel for schedule(static)
  for (long long s = 0; s < count; ++s) target[results[s].first] = results[s].second;
}
