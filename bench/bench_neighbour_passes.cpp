// Pair evaluations per second of each neighbour pass on a 0.25 M-particle plane set, at the stride
// of the fine model (about 5 samples per neighbour cell), and the rebuild of the cell index.

#include <benchmark/benchmark.h>
#include <omp.h>

#include "bench/bench_cloud.h"
#include "src/spatial/cell_index.h"
#include "src/filter/density.h"
#include "src/filter/filter_particles.h"
#include "src/spatial/iterate_particles_cells.h"
#include "src/filter/normals.h"
#include "src/filter/position_update.h"

namespace {

struct Fixture {
  cloud::ParticleSet set;
  CellIndex cells;
  NeighbourPass pass;
  std::vector<float> density;

  void rebuild() { rebuild_cell_index(cells, set.particles, set.offsets); }
};

// Counts the delivered pairs of a pass.
template <bool self>
struct CountPairsFunctor {
  using Out_t = float;
  static constexpr bool with_self = self;
  void setup(const NeighbourPass&) {}
  void gather(const NeighbourList&) {}
  void run(const CellBatch& batch, const NeighbourList& list, Out_t* out) const {
    for (int l = 0; l < batch.count; ++l) {
      int own = 0;
      for (int e = 0; e < list.size(); ++e) own += list.index[e] == batch.index[l];
      out[l] = static_cast<float>(list.size() - own) + (with_self ? 1.0f : 0.0f);
    }
  }
};

Fixture& fixture() {
  static Fixture f = [] {
    Fixture f;
    const int side = 250;
    f.set = bench_cloud::plane_set(side);
    const float radius = bench_cloud::fine_radius(side);
    f.cells = cell_grid(f.set.particles, f.set.offsets, radius);
    f.rebuild();
    reorder_particles(f.set.particles, f.set.offsets, f.set.normals, f.cells.handles);
    f.rebuild();
    float average = 0.0f;
    cell_length_statistics(nullptr, &average, f.cells.cell_keys, f.cells.cell_starts, f.cells.keys);
    f.density.assign(f.set.size(), 0.0f);
    f.pass = {.particles = f.set.particles.data(),
              .offsets = f.set.offsets.data(),
              .normals = f.set.normals.data(),
              .density = f.density.data(),
              .radius = radius,
              .stride = neighbour_stride(average, 5),
              .alpha = 0.001f,
              .beta = 1.0f};
    bench_cloud::QuietStdout quiet;
    update_density(f.density, f.cells, f.pass);
    return f;
  }();
  return f;
}

template <typename Functor, bool with_self>
double pair_count(Fixture& f) {
  CountPairsFunctor<with_self> counter;
  std::vector<std::pair<int, float>> results;
  iterate_particles_cells<CountPairsFunctor<with_self>, with_self>(counter, results, f.cells, f.pass);
  double total = 0.0;
  for (const auto& r : results) total += r.second;
  return total;
}

template <typename Functor, bool with_self>
void BM_Pass(benchmark::State& state) {
  Fixture& f = fixture();
  omp_set_num_threads(static_cast<int>(state.range(0)));
  const double pairs = pair_count<Functor, with_self>(f);
  for (auto _ : state) {
    Functor functor;
    std::vector<std::pair<int, typename Functor::Out_t>> results;
    iterate_particles_cells<Functor, with_self>(functor, results, f.cells, f.pass);
    benchmark::DoNotOptimize(results.data());
  }
  state.counters["pairs_per_s"] = benchmark::Counter(pairs * state.iterations(), benchmark::Counter::kIsRate);
  state.counters["pairs_per_particle"] = pairs / static_cast<double>(f.set.size());
  state.counters["stride"] = f.pass.stride;
  omp_set_num_threads(omp_get_num_procs());
}

void BM_Rebuild(benchmark::State& state) {
  Fixture& f = fixture();
  omp_set_num_threads(static_cast<int>(state.range(0)));
  for (auto _ : state) f.rebuild();
  state.counters["particles_per_s"] =
      benchmark::Counter(static_cast<double>(f.set.size()) * state.iterations(), benchmark::Counter::kIsRate);
  omp_set_num_threads(omp_get_num_procs());
}

}  // namespace

BENCHMARK(BM_Pass<ComputeDensityFunctor, true>)->Name("density")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Pass<ComputeNormalsFunctor<false, true>, true>)->Name("normals")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Pass<UpdateParticlePosFunctor<true>, false>)->Name("exact_step")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Pass<ComputeGradientFunctor<true>, false>)->Name("gradient")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Rebuild)->Name("rebuild_index")->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
