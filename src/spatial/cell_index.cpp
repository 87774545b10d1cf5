#include "src/spatial/cell_index.h"

#include <omp.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <type_traits>

#include "src/spatial/morton.h"
#include "src/core/particle_position.h"

namespace {

// Float cell coordinate to the unsigned 64-bit coordinate. Negative coordinates wrap (-1 becomes
// all ones), values out of the 64-bit range and NaN give 0x8000000000000000, the bits a truncating
// conversion of the processor yields; only the low 16 bits survive the encoding anyway.
unsigned long long cell_coordinate(float v) {
  if (v >= -9.2233720e18f && v < 9.2233720e18f)
    return static_cast<unsigned long long>(static_cast<long long>(v));
  return 0x8000000000000000ULL;
}

}  // namespace

unsigned long long cell_key(float3 p, float3 grid_min, float inv_cell) {
  return encode(cell_coordinate(std::floor((p.x - grid_min.x) * inv_cell)),
                cell_coordinate(std::floor((p.y - grid_min.y) * inv_cell)),
                cell_coordinate(std::floor((p.z - grid_min.z) * inv_cell)));
}

namespace {

// One half of the bounding box: the componentwise fold of pos and pos + t * dir over the particles
// with a finite pos.x, per thread first and then merged in a critical section.
template <typename Op>
float3 fold_positions(const std::vector<Particle>& particles, const std::vector<float>& offsets, float start, Op op) {
  const long long n = static_cast<long long>(particles.size());
  float3 result = {start, start, start};
#pragma omp parallel
  {
    float3 local = {start, start, start};
#pragma omp for schedule(static)
    for (long long i = 0; i < n; ++i) {
      const Particle& p = particles[i];
      if (!is_finite_value(p.pos.x)) continue;
      const float3 q = particle_position(p, offsets[i]);
      local.x = op(local.x, op(p.pos.x, q.x));
      local.y = op(local.y, op(p.pos.y, q.y));
      local.z = op(local.z, op(p.pos.z, q.z));
    }
#pragma omp critical
    {
      result.x = op(result.x, local.x);
      result.y = op(result.y, local.y);
      result.z = op(result.z, local.z);
    }
  }
  return result;
}

}  // namespace

void particles_bounding_box(float3* min, float3* max, const std::vector<Particle>& particles,
                            const std::vector<float>& offsets) {
  if (min) *min = fold_positions(particles, offsets, FLT_MAX, [](float a, float b) { return std::fmin(a, b); });
  if (max) *max = fold_positions(particles, offsets, -FLT_MAX, [](float a, float b) { return std::fmax(a, b); });
}

void compute_cell_keys_from_pos(std::vector<unsigned long long>& keys, const std::vector<Particle>& particles,
                                float3 grid_min, float inv_cell) {
  const long long n = static_cast<long long>(particles.size());
  keys.resize(n);
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) {
    const Particle& p = particles[k];
    keys[k] = is_finite_value(p.pos.x) ? cell_key(p.pos, grid_min, inv_cell) : invalid_cell_key;
  }
}

void compute_cell_keys(std::vector<unsigned long long>& keys, const std::vector<unsigned int>& handles,
                       const std::vector<Particle>& particles, const std::vector<float>& offsets,
                       float3 grid_min, float inv_cell) {
  const long long n = static_cast<long long>(handles.size());
  keys.resize(n);
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) {
    const unsigned int i = handles[k];
    const Particle& p = particles[i];
    const float t = offsets[i];
    keys[k] = is_finite_value(p.pos.x) && is_finite_value(t)
                  ? cell_key(particle_position(p, t), grid_min, inv_cell)
                  : invalid_cell_key;
  }
}

void create_cell_start_index_table(std::vector<unsigned long long>& cell_keys, std::vector<unsigned int>& cell_starts,
                                   std::vector<unsigned long long>& keys) {
  const long long n = static_cast<long long>(keys.size());
  std::vector<int> flag(n, 0);
  flag[0] = 1;
#pragma omp parallel for schedule(static)
  for (long long i = 1; i < n; ++i)
    if (keys[i - 1] != keys[i]) flag[i] = 1;

  std::vector<int> index(n);
  int sum = 0;
  for (long long i = 0; i < n; ++i) {
    index[i] = sum;
    sum += flag[i];
  }
  const int cell_count = index[n - 1] + flag[n - 1];

  cell_keys.assign(cell_count, 0);
  cell_starts.assign(cell_count, 0);
  cell_keys[0] = keys[0];
  cell_starts[0] = 0;
#pragma omp parallel for schedule(static)
  for (long long i = 1; i < n; ++i) {
    if (keys[i - 1] != keys[i]) {
      cell_keys[index[i]] = keys[i];
      cell_starts[index[i]] = static_cast<unsigned int>(i);
    }
  }
}

void create_cell_size_prefix_sum(std::vector<int>& cell_prefix_sum, const std::vector<unsigned int>& cell_starts,
                                 int particle_count) {
  const long long c = static_cast<long long>(cell_starts.size());
  std::vector<int> size(c);
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < c - 1; ++k) size[k] = static_cast<int>(cell_starts[k + 1] - cell_starts[k]);
  if (c > 0) size[c - 1] = particle_count - static_cast<int>(cell_starts[c - 1]);

  cell_prefix_sum.resize(c);
  int sum = 0;
  for (long long k = 0; k < c; ++k) {
    sum += size[k];
    cell_prefix_sum[k] = sum;
  }
}

void cell_length_statistics(int* max_length, float* average_length, const std::vector<unsigned long long>& cell_keys,
                            const std::vector<unsigned int>& cell_starts, const std::vector<unsigned long long>& keys) {
  const long long c = static_cast<long long>(cell_keys.size());
  const size_t n = keys.size();
  int longest = 0;
  float total = 0.0f;
  for (long long q = 0; q < c; ++q) {
    size_t k = cell_starts[q];
    int length = 0;
    while (k < n && keys[k] == cell_keys[q]) {
      ++length;
      ++k;
    }
    if (length > longest) longest = length;
    total += static_cast<float>(length);
  }
  if (max_length) *max_length = longest;
  if (average_length) *average_length = total / static_cast<float>(c);
}

namespace {

// Gives the pages of v's spare capacity back to the system. A set that thresholding has shrunk keeps
// its old capacity, and the pages the larger set filled stay resident until the array is freed.
template <typename T>
void release_spare_capacity(std::vector<T>& v) {
  static_assert(std::is_trivially_copyable_v<T>, "the spare capacity holds no objects");
  const uintptr_t page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
  const uintptr_t begin = (reinterpret_cast<uintptr_t>(v.data() + v.size()) + page - 1) / page * page;
  const uintptr_t end = reinterpret_cast<uintptr_t>(v.data() + v.capacity()) / page * page;
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
}

// v[k] = old v[handles[k]] for the handles' positions, through one new array at a time; entries
// beyond them stay. The old array's spare capacity is released first, so that the two arrays
// together hold no more than twice the set.
template <typename T>
void permute(std::vector<T>& v, const std::vector<unsigned int>& handles) {
  release_spare_capacity(v);
  const long long n = static_cast<long long>(handles.size());
  std::vector<T> moved(v.size());
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) moved[k] = v[handles[k]];
  std::copy(v.begin() + std::min<long long>(n, v.size()), v.end(), moved.begin() + std::min<long long>(n, v.size()));
  v.swap(moved);
}

}  // namespace

void reorder_particles(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                       std::vector<unsigned int>& handles) {
  permute(offsets, handles);
  permute(normals, handles);
  permute(particles, handles);
  const long long n = static_cast<long long>(handles.size());
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) handles[k] = static_cast<unsigned int>(k);
}

void reorder_in_place(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                      std::vector<unsigned int>& handles) {
  permute(offsets, handles);
  permute(normals, handles);
  // Each cycle of the permutation: position k takes the particle from handles[k], and handles[k]
  // becomes k, which marks the position done.
  const long long n = static_cast<long long>(handles.size());
  for (long long start = 0; start < n; ++start) {
    if (handles[start] == start) continue;
    const Particle first = particles[start];
    long long k = start;
    while (true) {
      const long long from = handles[k];
      handles[k] = static_cast<unsigned int>(k);
      if (from == start) {
        particles[k] = first;
        break;
      }
      particles[k] = particles[from];
      k = from;
    }
  }
}

CellIndex cell_grid(const std::vector<Particle>& particles, const std::vector<float>& offsets, float radius) {
  CellIndex index;
  float3 box_min;
  particles_bounding_box(&box_min, nullptr, particles, offsets);
  const float margin = 10.0f * radius;
  index.grid_min = {box_min.x - margin, box_min.y - margin, box_min.z - margin};
  index.inv_cell = 1.0f / radius;
  const long long n = static_cast<long long>(particles.size());
  index.handles.resize(n);
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) index.handles[k] = static_cast<unsigned int>(k);
  return index;
}

void rebuild_cell_index(CellIndex& index, const std::vector<Particle>& particles, const std::vector<float>& offsets) {
  compute_cell_keys(index.keys, index.handles, particles, offsets, index.grid_min, index.inv_cell);
  sort_particle_handles(index.handles, index.keys);
  create_cell_start_index_table(index.cell_keys, index.cell_starts, index.keys);
  create_cell_size_prefix_sum(index.cell_prefix_sum, index.cell_starts, static_cast<int>(particles.size()));
  index.cell_map = create_hash_map(index.cell_keys, index.cell_starts, 0.8f);
}
