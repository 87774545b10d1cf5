// Depth-map refinement of 640 x 480 views: five neighbouring views of a generated ring of 12 (30
// degrees apart), refined from their measured depth maps at the program's radius of 4 pixels.
// The middle view has 4 neighbours within 60 degrees, the next two 3, the outer two 2: 14
// neighbour pairs in all, each scored at 7 offsets.
//   bench_refine [benchmark flags]

#include <benchmark/benchmark.h>

#include <filesystem>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "bench/bench_main.h"
#include "src/app/scene_input.h"
#include "src/refine/refine_depthmaps.h"
#include "tools/scene/scene_files.h"

namespace {

constexpr int refined_views = 5;
constexpr int neighbour_pairs = 14;

std::vector<Camera> cameras;
std::vector<CMatrix<float>> depthmaps;
float radius = 0.0f;

void make_views() {
  scene::SceneOptions options;
  options.out_dir = (std::filesystem::temp_directory_path() / "quillara_bench_refine").string();
  options.views = 12;
  options.noise = 0.003;
  scene::write_scene(scene::make_default_scene(), options);
  cameras.resize(refined_views);
  depthmaps.resize(refined_views);
  double sum = 0;
  long n = 0;
  for (int i = 0; i < refined_views; ++i) {
    read_view(options.out_dir + "/" + scene::view_file_name(i), i, cameras[i], depthmaps[i]);
    for (std::size_t p = 0; p < depthmaps[i].size(); ++p)
      if (depthmaps[i].data[p] > 0) sum += depthmaps[i].data[p], ++n;
  }
  radius = pixel_radius(4.0f, static_cast<float>(sum / n), cameras[0].K[0]);
}

void BM_RefineDepthmaps(benchmark::State& state) {
  std::vector<Camera*> ptrs;
  for (Camera& c : cameras) ptrs.push_back(&c);
  std::vector<CMatrix<float>> improved, particle;
  std::ostringstream progress;  // the operator's progress lines stay out of the table
  std::streambuf* out = std::cout.rdbuf(progress.rdbuf());
  for (auto _ : state) refine_depthmaps(improved, particle, depthmaps, ptrs, radius);
  std::cout.rdbuf(out);
  state.counters["views"] = refined_views;
  state.counters["s_per_view"] = benchmark::Counter(
      refined_views, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
  state.counters["s_per_pair"] = benchmark::Counter(
      neighbour_pairs, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_RefineDepthmaps)->Unit(benchmark::kSecond)->MeasureProcessCPUTime()->UseRealTime()->Iterations(2);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  return bench_main::run("bench_refine", make_views);
}
