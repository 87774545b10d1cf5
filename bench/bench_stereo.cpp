// The depth chain on one 640 x 480 view of a generated ring of 16 (22.5 degrees apart): the cost
// volume of 128 labels against its 4 neighbours, by single-pixel differences (add_matching_costs,
// SAD: quillara-depth's default) and by warped windows (add_matching_costs2), and semi-global
// matching on it with 8 paths and the edge-aware penalty map, timed separately.
//   bench_stereo [benchmark flags]

#include <benchmark/benchmark.h>

#include <filesystem>
#include <iostream>
#include <sstream>
#include <vector>

#include "bench/bench_main.h"
#include "ketra/algorithms/basic.h"
#include "ketra/tools.h"
#include "src/core/settings.h"
#include "src/refine/edge_map.h"
#include "src/render/device_arrays.h"
#include "src/stereo/matching_costs.h"
#include "src/stereo/matching_projection.h"
#include "src/stereo/sgm.h"
#include "tools/depth/depth_views.h"
#include "tools/scene/scene_files.h"

namespace {

constexpr int kLabels = 128, kNeighbours = 4, kPaths = 8;
constexpr float kNear = 1.5f, kFar = 7.0f;
constexpr int kReference = 0, kNeighbourViews[kNeighbours] = {1, 2, 15, 14};

std::vector<Camera> cameras;

void make_views() {
  scene::SceneOptions options;
  options.out_dir = (std::filesystem::temp_directory_path() / "quillara_bench_stereo").string();
  options.views = 16;
  scene::write_scene(scene::make_default_scene(), options);
  for (int i = 0; i < options.views; ++i)
    cameras.push_back(depth_tool::read_depth_view(options.out_dir + "/" + scene::view_file_name(i), i, false).camera);
}

ketra::Array<uchar4, 2> upload(const CMatrix<uchar4>& image) {
  ketra::Array<uchar4, 2> d = allocate_pitched<uchar4, 2>(image.xSize, image.ySize, 1);
  ketra::arrayCopy(d, ketra::arrayFromHostMemory(const_cast<uchar4*>(image.data), image.xSize, image.ySize));
  return d;
}

unsigned int width() { return static_cast<unsigned int>(cameras[kReference].width); }
unsigned int height() { return static_cast<unsigned int>(cameras[kReference].height); }

// The volume of the reference against its neighbours; the caller frees it.
ketra::Array<float, 4> cost_volume(bool sad) {
  const Camera& r = cameras[kReference];
  ketra::Array<float, 4> costs = ketra::mallocDeviceArray<float>(make_uint4(width(), height(), kLabels, 2));
  ketra::set(costs, 0.0f);
  ketra::Array<uchar4, 2> ref = upload(r.image);
  std::ostringstream printed;  // the operator's table of taps stays out of the report
  std::streambuf* out = std::cout.rdbuf(printed.rdbuf());
  for (int n : kNeighbourViews) {
    ketra::Array<uchar4, 2> image = upload(cameras[n].image);
    const ProjectionMatrix P = matching_projection(r, cameras[n]);
    if (sad)
      add_matching_costs(costs, ref, image, kNear, kFar, r.K[0], r.K[4], r.K[6], r.K[7], P, SAD);
    else
      add_matching_costs2(costs, ref, image, kNear, kFar, r.K[0], r.K[4], r.K[6], r.K[7], P, NCC);
    ketra::freeArray(image);
  }
  std::cout.rdbuf(out);
  ketra::freeArray(ref);
  return costs;
}

double cells() { return static_cast<double>(width()) * height() * kLabels; }

void BM_CostVolume(benchmark::State& state) {
  for (auto _ : state) {
    ketra::Array<float, 4> costs = cost_volume(state.range(0) == 0);
    ketra::freeArray(costs);
  }
  state.counters["cells_per_second"] =
      benchmark::Counter(cells() * kNeighbours, benchmark::Counter::kIsIterationInvariantRate);
}
// Argument 0: SAD, 1: warped NCC.
BENCHMARK(BM_CostVolume)->Arg(0)->Arg(1)->Unit(benchmark::kSecond)->MeasureProcessCPUTime()->UseRealTime()->Iterations(2);

void BM_Sgm(benchmark::State& state) {
  ketra::Array<float, 4> costs = cost_volume(true);
  ketra::Array<float, 3> sums = ketra::subvolume(costs, 0), counts = ketra::subvolume(costs, 1);
  ketra::div(sums, counts);
  ketra::Array<uchar4, 2> ref = upload(cameras[kReference].image);
  ketra::Array<float, 2> penalties = allocate_pitched<float, 2>(width(), height(), 1);
  ketra::Array<float, 2> labels = allocate_pitched<float, 2>(width(), height(), 1);
  for (auto _ : state) {
    compute_edge_map(penalties, ref);
    compute_P2_costs(penalties, 0.2f, 8.0f, 1.0f, 1.0f);
    sgm(labels, sums, 0.1f, 1.0f, penalties, kPaths, true);
  }
  state.counters["cells_per_second"] = benchmark::Counter(cells() * kPaths, benchmark::Counter::kIsIterationInvariantRate);
  for (auto* a : {&penalties, &labels}) ketra::freeArray(*a);
  ketra::freeArray(ref);
  ketra::freeArray(costs);
}
BENCHMARK(BM_Sgm)->Unit(benchmark::kSecond)->MeasureProcessCPUTime()->UseRealTime()->Iterations(2);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  debug_depthmap = false;  // the dumps are not part of the chain's work
  return bench_main::run("bench_stereo", make_views);
}
