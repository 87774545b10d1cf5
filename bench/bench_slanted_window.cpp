// The slanted-window steps of quillara-depth on one 640 x 480 view of a generated photograph ring
// of 16 (22.5 degrees apart) against its 4 neighbours, on the view's true depths: the plane fit
// around every pixel (fit_plane) and the mean window cost of each pixel's plane over the
// neighbours (reference_window and mean_cost), timed separately; the window cost both for the
// refinement's dense 7 x 7 windows and for the plane search's 9 x 9 windows sampled every other
// pixel (arguments: radius, stride).
//   bench_slanted_window [benchmark flags]

#include <benchmark/benchmark.h>

#include <filesystem>
#include <vector>

#include "bench/bench_main.h"
#include "formats/depth_png.h"
#include "tools/depth/depth_views.h"
#include "tools/depth/slanted_window.h"
#include "tools/scene/scene.h"
#include "tools/scene/scene_files.h"

namespace {

constexpr int kRadius = 3, kReference = 0, kNeighbourViews[] = {1, 2, 15, 14};
constexpr double kTolerance = 0.004;  // about two labels of the tool's sweep, in inverse depth

std::vector<Camera> cameras;
CMatrix<float> depth;  // the reference's true depths, 0 where the ray hits nothing

void make_views() {
  scene::SceneOptions options;
  options.out_dir = (std::filesystem::temp_directory_path() / "quillara_bench_slanted_window").string();
  options.views = 16;
  options.appearance = scene::Appearance::photograph;
  scene::write_scene(scene::make_default_scene(), options);
  for (int i = 0; i < options.views; ++i)
    cameras.push_back(depth_tool::read_depth_view(options.out_dir + "/" + scene::view_file_name(i), i, false).camera);
  const depth_tool::DepthView v =
      depth_tool::read_depth_view(options.out_dir + "/" + scene::view_file_name(kReference), kReference, false);
  const CMatrix<unsigned short> raw = read_depth_png(v.view.depth_path);
  depth.setSize(raw.xSize, raw.ySize);
  for (std::size_t p = 0; p < raw.size(); ++p) depth.data[p] = static_cast<float>(thousandths_to_depth(raw.data[p]));
}

void BM_FitPlane(benchmark::State& state) {
  long fitted = 0;
  for (auto _ : state) {
    fitted = 0;
    for (int y = 0; y < depth.ySize; ++y)
      for (int x = 0; x < depth.xSize; ++x) {
        double a, b, c;
        if (depth(x, y) > 0) fitted += depth_tool::fit_plane(depth, x, y, kRadius, kTolerance, a, b, c);
      }
  }
  state.counters["planes_per_second"] =
      benchmark::Counter(static_cast<double>(fitted), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_FitPlane)->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime()->Iterations(3);

void BM_WindowCost(benchmark::State& state) {
  const int radius = static_cast<int>(state.range(0)), stride = static_cast<int>(state.range(1));
  const depth_tool::ViewGeometry r = depth_tool::view_geometry(cameras[kReference]);
  std::vector<depth_tool::WindowPair> pairs;
  for (int n : kNeighbourViews) pairs.push_back(depth_tool::window_pair(r, cameras[n]));
  const depth_tool::Grey ref = depth_tool::grey_of(cameras[kReference].image);
  std::vector<depth_tool::Plane> planes;
  std::vector<int> at;
  for (int y = 0; y < depth.ySize; ++y)
    for (int x = 0; x < depth.xSize; ++x) {
      depth_tool::Plane q;
      if (depth(x, y) > 0 && depth_tool::fit_plane(depth, x, y, kRadius, kTolerance, q.a, q.b, q.c))
        planes.push_back(q), at.push_back(y * depth.xSize + x);
    }
  long windows = 0;
  double total = 0;  // kept, so that the costs are not optimised away
  for (auto _ : state) {
    windows = 0;
    depth_tool::ReferenceWindow window;
    for (std::size_t i = 0; i < planes.size(); ++i) {
      double cost;
      if (!depth_tool::reference_window(ref, r, at[i] % depth.xSize, at[i] / depth.xSize, radius, window, stride))
        continue;
      if (depth_tool::mean_cost(pairs, window, planes[i].a, stride * planes[i].b, stride * planes[i].c, cost))
        total += cost;
      ++windows;
    }
  }
  benchmark::DoNotOptimize(total);
  state.counters["windows_per_second"] = benchmark::Counter(static_cast<double>(windows) * std::size(kNeighbourViews),
                                                            benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_WindowCost)->Args({kRadius, 1})->Args({4, 2})->Unit(benchmark::kMillisecond)->MeasureProcessCPUTime()->UseRealTime()->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  return bench_main::run("bench_slanted_window", make_views);
}
