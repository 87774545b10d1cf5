#include "src/filter/filter_particles.h"

#include <cmath>
#include <iostream>

#include "ketra/timer.h"
#include "src/core/check_setting.h"
#include "src/core/settings.h"
#include "src/core/viewer_hooks.h"
#include "src/filter/density.h"
#include "src/filter/normals.h"
#include "src/filter/position_update.h"
#include "src/filter/sph_kernel.h"
#include "src/spatial/cell_index.h"

namespace {

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

void start_step_and_rebuild(CellIndex& cells, const std::vector<Particle>& particles,
                            const std::vector<float>& offsets) {
  ketra::timer::start("total iteration time");
  ketra::timer::start("hash map generation");
  rebuild_cell_index(cells, particles, offsets);
  ketra::timer::stop("hash map generation");
}

// Runs `step` inside the named timer.
template <typename Step>
void timed(const char* timer, Step&& step) {
  ketra::timer::start(timer);
  step();
  ketra::timer::stop(timer);
}

}  // namespace

int neighbour_stride(float average_length, int cell_samples) {
  const float s = average_length / static_cast<float>(cell_samples);
  return s > 1.0f ? static_cast<int>(s) : 1;
}

void FilterOptions::Check() const {
  const auto require = [](bool ok, const char* setting, const char* rule, float value) {
    check_setting(ok, "FilterOptions", setting, rule, value);
  };
  require(std::isfinite(alpha) && alpha >= 0.0f, "alpha", "finite and not negative", alpha);
  require(std::isfinite(beta) && beta >= 0.0f, "beta", "finite and not negative", beta);
  require(kernel_computable(radius), "radius", "one whose 32-bit kernel can be computed", radius);
  require(std::isfinite(timestep) && timestep >= 0.0f, "timestep", "finite and not negative", timestep);
  const FilterSchedule& s = schedule;
  require(s.exact_iterations >= 0, "exact_iterations", "0 or more", static_cast<float>(s.exact_iterations));
  require(s.gradient_iterations >= 0, "gradient_iterations", "0 or more", static_cast<float>(s.gradient_iterations));
  require(s.exact_iterations + s.gradient_iterations > 0, "exact_iterations + gradient_iterations", "above 0",
          static_cast<float>(s.exact_iterations + s.gradient_iterations));
  require(s.cell_samples >= 1, "cell_samples", "1 or more", static_cast<float>(s.cell_samples));
}

void filter_particles(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                      const FilterOptions& options) {
  // The cell index needs at least one particle; an empty set has nothing to filter.
  if (particles.empty()) return;
  const long long n = static_cast<long long>(particles.size());
  if (offsets.empty()) offsets.assign(n, 0.0f);
  if (normals.empty()) {
    normals.resize(n);
#pragma omp parallel for schedule(static)
    for (long long i = 0; i < n; ++i) normals[i] = particles[i].init_normal;
  }

  CellIndex cells = cell_grid(particles, offsets, options.radius);
  compute_cell_keys_from_pos(cells.keys, particles, cells.grid_min, cells.inv_cell);
  sendParticlesToLumvik(particles, offsets, normals, options.label, debug_lumvik_particle_iteration++);
  sort_particle_handles(cells.handles, cells.keys);
  // The one physical move of a run: it gives the neighbour loops their locality.
  reorder_particles(particles, offsets, normals, cells.handles);
  sort_particle_handles(cells.handles, cells.keys);
  create_cell_start_index_table(cells.cell_keys, cells.cell_starts, cells.keys);

  int max_cell_length = 0;
  float average_length = 0.0f;
  cell_length_statistics(&max_cell_length, &average_length, cells.cell_keys, cells.cell_starts, cells.keys);
  std::cout << "average cell length " << average_length << "\n";
  std::cout << "    max cell length " << max_cell_length << "\n";

  std::vector<float> density(n, 0.0f);
  std::vector<float> new_offsets(n, 0.0f);
  std::vector<float> lowest = offsets;
  std::vector<float> highest = offsets;
  // The arrays stay where they are for the whole run; each step reads them through the pass.
  const NeighbourPass pass{.particles = particles.data(),
                           .offsets = offsets.data(),
                           .normals = normals.data(),
                           .density = density.data(),
                           .radius = options.radius,
                           .stride = neighbour_stride(average_length, options.schedule.cell_samples),
                           .alpha = options.alpha,
                           .beta = options.beta,
                           .use_normal_dot_weight = options.use_normal_dot_weight};
  float omega = 1.0f;
  int iteration = 1;
  long long count = 0;
  const auto few_moved = [&] { return 0.2 * static_cast<double>(n) > static_cast<double>(count); };

  // Phase 1: exact steps, relaxed more strongly whenever few particles still find new ground.
  if (options.schedule.exact_iterations > 0) {
    do {
      print_header(iteration);
      start_step_and_rebuild(cells, particles, offsets);
      timed("normals update", [&] { compute_normals(normals, cells, pass, iteration == 1); });
      timed("density update", [&] { update_density(density, cells, pass); });
      ketra::timer::start("positions update");
      update_particles(new_offsets, cells, pass, omega);
      count = envelope_and_copy(offsets, new_offsets, lowest, highest);
      if (few_moved()) {
        lowest = offsets;
        highest = offsets;
        omega = static_cast<float>(static_cast<double>(omega) * 0.8);
      }
      finish_step_timers();
      iteration += 1;
    } while (iteration <= options.schedule.exact_iterations && omega > 0.125f);
  }

  // Phase 2: gradient steps, which also turn the normals; ends early once the set stops spreading.
  lowest = offsets;
  highest = offsets;
  for (int step = iteration + 1; step <= iteration + options.schedule.gradient_iterations; ++step) {
    print_header(step);
    start_step_and_rebuild(cells, particles, offsets);
    timed("density update", [&] { update_density(density, cells, pass); });
    ketra::timer::start("positions update");
    update_particles_gd(new_offsets, normals, cells, pass, options.timestep);
    count = envelope_and_copy(offsets, new_offsets, lowest, highest);
    finish_step_timers();
    if (few_moved()) break;
  }

  // Phase 3: one closing exact step with fresh normals and the density of the last step.
  start_step_and_rebuild(cells, particles, offsets);
  timed("normals update", [&] { compute_normals(normals, cells, pass, false); });
  ketra::timer::start("positions update");
  update_particles(new_offsets, cells, pass, 1.0f);
  envelope_and_copy(offsets, new_offsets, lowest, highest);
  finish_step_timers();

  debug_lumvik_particle_iteration += 10;
}
