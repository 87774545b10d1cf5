#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"
#include "src/spatial/hash_map.h"

// Uniform grid with cell edge h: particles are sorted by the Morton key of their cell, so that each
// cell is a contiguous run of the sorted handles, and the distinct keys with the start of each run
// form the cell table.

// Componentwise minimum and maximum of pos and pos + t * dir over all particles with a finite pos.x.
// Either pointer may be null, and then that half isn't computed.
void particles_bounding_box(float3* min, float3* max, const std::vector<Particle>& particles,
                            const std::vector<float>& offsets);

// Key of the cell that holds p: floor((p - grid_min) * inv_cell) per axis, Morton-encoded.
unsigned long long cell_key(float3 p, float3 grid_min, float inv_cell);

// Keys from pos alone, for particle k in index order (invalid if pos.x isn't finite). Used once at
// the start of a filter run to bring the set into a spatially coherent memory order.
void compute_cell_keys_from_pos(std::vector<unsigned long long>& keys, const std::vector<Particle>& particles,
                                float3 grid_min, float inv_cell);

// Keys of the current positions pos + t * dir of handles[k] (invalid if pos.x or t isn't finite).
void compute_cell_keys(std::vector<unsigned long long>& keys, const std::vector<unsigned int>& handles,
                       const std::vector<Particle>& particles, const std::vector<float>& offsets,
                       float3 grid_min, float inv_cell);

// Stable ascending sort of keys with handles as payload, on OpenMP threads. The result does not
// depend on the number of threads.
void sort_particle_handles(std::vector<unsigned int>& handles, std::vector<unsigned long long>& keys);

// Distinct keys of the sorted `keys` and the position of each key's first occurrence. `keys` must
// not be empty.
void create_cell_start_index_table(std::vector<unsigned long long>& cell_keys, std::vector<unsigned int>& cell_starts,
                                   std::vector<unsigned long long>& keys);

// Inclusive running sum of the cell sizes; the last element is particle_count.
void create_cell_size_prefix_sum(std::vector<int>& cell_prefix_sum, const std::vector<unsigned int>& cell_starts,
                                 int particle_count);

// Longest run of equal keys and the average run length over the cells. Either pointer may be null.
void cell_length_statistics(int* max_length, float* average_length, const std::vector<unsigned long long>& cell_keys,
                            const std::vector<unsigned int>& cell_starts, const std::vector<unsigned long long>& keys);

// Permutes the three particle arrays into handle order (particles[k] = old particles[handles[k]])
// and resets handles to the identity. One array at a time goes through a new array, so that the
// old one, with any spare capacity, is released.
void reorder_particles(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                       std::vector<unsigned int>& handles);

// The same without a second copy of the particles: they move along the cycles of the permutation.
void reorder_in_place(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                      std::vector<unsigned int>& handles);

// The cell index of a particle set as the neighbour passes walk it: the grid, the handles sorted by
// the key of their particle's cell, and the tables of the occupied cells.
struct CellIndex {
  float3 grid_min{};                          // corner of the grid
  float inv_cell = 0.0f;                      // 1 / cell edge
  std::vector<unsigned int> handles;          // particle indices in cell order
  std::vector<unsigned long long> keys;       // key of each handle's cell, ascending
  std::vector<unsigned long long> cell_keys;  // key of each occupied cell, ascending
  std::vector<unsigned int> cell_starts;      // position of each cell's first handle
  std::vector<int> cell_prefix_sum;           // position behind each cell's last handle
  HashMap cell_map;                           // cell key to the position of the cell's first handle
};

// An index with cell edge `radius` on a grid whose corner lies 10 radii below the set's bounding
// box, with the handles in index order and no tables yet.
CellIndex cell_grid(const std::vector<Particle>& particles, const std::vector<float>& offsets, float radius);

// Sorts the handles, from the order they are in, by the cells of the current positions and builds
// the tables of the occupied cells (hash map at load factor 0.8). The set must not be empty.
void rebuild_cell_index(CellIndex& index, const std::vector<Particle>& particles, const std::vector<float>& offsets);
