// One filter_particles run of the fine model (2 exact + 10 gradient steps, radius 5 pixels, alpha
// 0.001, beta 1, time step 0.005, cell_samples 5) on plane sets of about 0.25 M, 1 M and 4 M
// particles, with 1 and 2 threads: wall and processor time per particle, which should not grow
// with the set, and the peak memory per particle.

#include <benchmark/benchmark.h>
#include <omp.h>

#include <map>

#include "bench/bench_cloud.h"
#include "src/filter/filter_particles.h"

namespace {

const cloud::ParticleSet& input_of(int side) {
  static std::map<int, cloud::ParticleSet> sets;
  auto it = sets.find(side);
  if (it == sets.end()) it = sets.emplace(side, bench_cloud::plane_set(side)).first;
  return it->second;
}

void BM_FilterParticles(benchmark::State& state) {
  const int side = static_cast<int>(state.range(0));
  const int threads = static_cast<int>(state.range(1));
  const cloud::ParticleSet& input = input_of(side);
  omp_set_num_threads(threads);
  double process_seconds = 0.0;
  for (auto _ : state) {
    state.PauseTiming();
    cloud::ParticleSet set = input;
    const double before = bench_cloud::process_cpu_seconds();
    state.ResumeTiming();
    {
      bench_cloud::QuietStdout quiet;
      FilterOptions options;  // the fine model's
      options.radius = bench_cloud::fine_radius(side);
      filter_particles(set.particles, set.offsets, set.normals, options);
    }
    state.PauseTiming();
    process_seconds += bench_cloud::process_cpu_seconds() - before;
    state.ResumeTiming();
    benchmark::DoNotOptimize(set.offsets.data());
  }
  const double n = static_cast<double>(input.size());
  state.counters["particles"] = n;
  state.counters["ns_per_particle"] =
      benchmark::Counter(n * state.iterations() * 1e-9, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  // Processor time of all threads: on a shared machine it stays put where wall time doesn't.
  state.counters["cpu_ns_per_particle"] = process_seconds * 1e9 / (n * static_cast<double>(state.iterations()));
  state.counters["peak_rss_bytes_per_particle"] = bench_cloud::peak_rss_bytes() / n;
  omp_set_num_threads(omp_get_num_procs());
}

}  // namespace

BENCHMARK(BM_FilterParticles)
    ->ArgNames({"side", "threads"})
    ->Args({250, 1})->Args({250, 2})
    ->Args({500, 1})->Args({500, 2})
    ->Args({1000, 1})->Args({1000, 2})
    ->Iterations(1)
    ->Unit(benchmark::kSecond)
    ->UseRealTime();

BENCHMARK_MAIN();
