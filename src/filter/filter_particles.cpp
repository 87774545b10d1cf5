#include "src/filter/filter_particles.h"

#include <iostream>

#include "ketra/timer.h"
#include "src/spatial/cell_index.h"
#include "src/filter/density.h"
#include "src/spatial/hash_map.h"
#include "src/filter/normals.h"
#include "src/filter/position_update.h"
#include "src/core/settings.h"
#include "src/core/viewer_hooks.h"

namespace {

// The cell index of the current positions, rebuilt before every step in the kept handle order.
struct CellIndex {
  std::vector<unsigned int> handles;
  std::vector<unsigned long long> keys;
  std::vector<unsigned long long> cell_keys;
  std::vector<unsigned int> cell_starts;
  std::vector<int> cell_prefix_sum;
  HashMap cell_map;
};

void rebuild(CellIndex& index, const std::vector<Particle>& particles, const std::vector<float>& offsets,
             float3 grid_min, float inv_cell) {
  compute_cell_keys(index.keys, index.handles, particles, offsets, grid_min, inv_cell);
  sort_particle_handles(index.handles, index.keys);
  create_cell_start_index_table(index.cell_keys, index.cell_starts, index.keys);
  create_cell_size_prefix_sum(index.cell_prefix_sum, index.cell_starts, static_cast<int>(particles.size()));
  index.cell_map = create_hash_map(index.cell_keys, index.cell_starts, 0.8f);
}

// offsets = new_offsets, widening the envelope [lowest, highest] of each particle. Returns how
// many particles reached a new extreme.
long long envelope_and_copy(std::vector<float>& offsets, const std::vector<float>& new_offsets,
                            std::vector<float>& lowest, std::vector<float>& highest) {
  const long long n = static_cast<long long>(new_offsets.size());
  long long count = 0;
#pragma omp parallel
  {
    long long local = 0;
#pragma omp for schedule(static)
    for (long long i = 0; i < n; ++i) {
      const float v = new_offsets[i];
      if (v > highest[i]) {
        highest[i] = v;
        ++local;
      } else if (lowest[i] > v) {
        lowest[i] = v;
        ++local;
      }
      offsets[i] = v;
    }
#pragma omp critical
    count += local;
  }
  return count;
}

void print_header(int iteration) {
  std::cout << "====================  iteration " << iteration << "  ====================\n";
}

void finish_step_timers() {
  ketra::timer::stop("positions update");
  ketra::timer::stop("total iteration time");
  ketra::timer::printToScreen();
  for (const char* name : {"density update", "hash map generation", "positions update", "normals update",
                           "sendParticlesToLumvik", "total iteration time"})
    ketra::timer::reset(name);
}

void start_step_and_rebuild(CellIndex& index, const std::vector<Particle>& particles,
                            const std::vector<float>& offsets, float3 grid_min, float inv_cell) {
  ketra::timer::start("total iteration time");
  ketra::timer::start("hash map generation");
  rebuild(index, particles, offsets, grid_min, inv_cell);
  ketra::timer::stop("hash map generation");
}

}  // namespace

int neighbour_stride(float average_length, int cell_samples) {
  const float s = average_length / static_cast<float>(cell_samples);
  return s > 1.0f ? static_cast<int>(s) : 1;
}

void filter_particles(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                      float alpha, float beta, float radius, int exact_iterations, int gradient_iterations,
                      float timestep, int cell_samples, std::string label) {
  filter_particles(particles, offsets, normals, alpha, beta, radius, exact_iterations, gradient_iterations, timestep,
                   cell_samples, std::move(label), 0);
}

void filter_particles(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                      float alpha, float beta, float radius, int exact_iterations, int gradient_iterations,
                      float timestep, int cell_samples, std::string label, int given_stride) {
  // The cell index needs at least one particle; an empty set has nothing to filter.
  if (particles.empty()) return;
  const long long n = static_cast<long long>(particles.size());
  if (offsets.empty()) offsets.assign(n, 0.0f);
  if (normals.empty()) {
    normals.resize(n);
#pragma omp parallel for schedule(static)
    for (long long i = 0; i < n; ++i) normals[i] = particles[i].init_normal;
  }

  float3 box_min;
  particles_bounding_box(&box_min, nullptr, particles, offsets);
  const float margin = 10.0f * radius;
  const float3 grid_min = {box_min.x - margin, box_min.y - margin, box_min.z - margin};
  const float inv_cell = 1.0f / radius;

  CellIndex index;
  compute_cell_keys_from_pos(index.keys, particles, grid_min, inv_cell);
  sendParticlesToLumvik(particles, offsets, normals, label, debug_lumvik_particle_iteration++);

  index.handles.resize(n);
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) index.handles[k] = static_cast<unsigned int>(k);
  sort_particle_handles(index.handles, index.keys);
  // The one physical move of a run: it gives the neighbour loops their locality.
  reorder_particles(particles, offsets, normals, index.handles);
  sort_particle_handles(index.handles, index.keys);
  create_cell_start_index_table(index.cell_keys, index.cell_starts, index.keys);

  {
    int max_length = 0;
    float average_length = 0.0f;
    cell_length_statistics(&max_length, &average_length, index.cell_keys, index.cell_starts, index.keys);
    std::cout << "average cell length " << average_length << "\n";
    std::cout << "    max cell length " << max_length << "\n";
  }
  int max_cell_length = 0;
  float average_length = 0.0f;
  cell_length_statistics(&max_cell_length, &average_length, index.cell_keys, index.cell_starts, index.keys);

  const HashMap first_cell_map = create_hash_map(index.cell_keys, index.cell_starts, 0.8f);
  index.cell_map = first_cell_map;

  const int stride = given_stride > 0 ? given_stride : neighbour_stride(average_length, cell_samples);

  std::vector<float> density(n, 0.0f);
  std::vector<float> new_offsets(n, 0.0f);
  std::vector<float> lowest = offsets;
  std::vector<float> highest = offsets;
  float omega = 1.0f;
  int iteration = 1;
  long long count = 0;

  // Phase 1: exact steps, relaxed more strongly whenever few particles still find new ground.
  if (exact_iterations > 0) {
    do {
      print_header(iteration);
      start_step_and_rebuild(index, particles, offsets, grid_min, inv_cell);

      ketra::timer::start("normals update");
      compute_normals(particles, offsets, normals, index.cell_keys, index.cell_prefix_sum, index.handles,
                      index.cell_map, grid_min, max_cell_length, radius, alpha, beta, iteration == 1, stride);
      ketra::timer::stop("normals update");

      ketra::timer::start("density update");
      update_density(density, particles, offsets, normals, index.cell_keys, index.cell_prefix_sum, index.handles,
                     index.cell_map, first_cell_map, grid_min, max_cell_length, radius, alpha, beta, stride);
      ketra::timer::stop("density update");

      ketra::timer::start("positions update");
      update_particles(new_offsets, particles, density, offsets, normals, index.cell_keys, index.cell_prefix_sum,
                       index.handles, index.cell_map, first_cell_map, grid_min, max_cell_length, radius, alpha,
                       beta, omega, stride);
      count = envelope_and_copy(offsets, new_offsets, lowest, highest);
      if (0.2 * static_cast<double>(n) > static_cast<double>(count)) {
        lowest = offsets;
        highest = offsets;
        omega = static_cast<float>(static_cast<double>(omega) * 0.8);
      }
      finish_step_timers();
      iteration += 1;
    } while (iteration <= exact_iterations && omega > 0.125f);
  }

  // Phase 2: gradient steps, which also turn the normals; ends early once the set stops spreading.
  lowest = offsets;
  highest = offsets;
  for (int step = iteration + 1; step <= iteration + gradient_iterations; ++step) {
    print_header(step);
    start_step_and_rebuild(index, particles, offsets, grid_min, inv_cell);

    ketra::timer::start("density update");
    update_density(density, particles, offsets, normals, index.cell_keys, index.cell_prefix_sum, index.handles,
                   index.cell_map, first_cell_map, grid_min, max_cell_length, radius, alpha, beta, stride);
    ketra::timer::stop("density update");

    ketra::timer::start("positions update");
    update_particles_gd(new_offsets, particles, density, offsets, normals, index.cell_keys, index.cell_prefix_sum,
                        index.handles, index.cell_map, first_cell_map, grid_min, max_cell_length, radius, alpha,
                        beta, 0.0f, stride, timestep);
    count = envelope_and_copy(offsets, new_offsets, lowest, highest);
    finish_step_timers();
    if (0.2 * static_cast<double>(n) > static_cast<double>(count)) break;
  }

  // Phase 3: one closing exact step with fresh normals and the density of the last step.
  start_step_and_rebuild(index, particles, offsets, grid_min, inv_cell);
  ketra::timer::start("normals update");
  compute_normals(particles, offsets, normals, index.cell_keys, index.cell_prefix_sum, index.handles,
                  index.cell_map, grid_min, max_cell_length, radius, alpha, beta, false, stride);
  ketra::timer::stop("normals update");
  ketra::timer::start("positions update");
  update_particles(new_offsets, particles, density, offsets, normals, index.cell_keys, index.cell_prefix_sum,
                   index.handles, index.cell_map, first_cell_map, grid_min, max_cell_length, radius, alpha, beta,
                   1.0f, stride);
  envelope_and_copy(offsets, new_offsets, lowest, highest);
  finish_step_timers();

  debug_lumvik_particle_iteration += 10;
}
