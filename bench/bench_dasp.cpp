#include <benchmark/benchmark.h>
#include <omp.h>

#include <cmath>

#include "dasp/superpixels.h"

namespace {

// A 640 x 480 view of a floor, a back wall and a sphere, textured with checkers, depth scaled so
// that its mean is about 1000 steps.
struct View {
  slimage::Image3ub color{640, 480};
  slimage::Image1ui16 depth{640, 480};
  dasp::Parameters parameters;
};

View make_view(unsigned count) {
  View v;
  const float f = 525.0f, cx = 319.5f, cy = 239.5f;
  for (unsigned y = 0; y < 480; ++y) {
    for (unsigned x = 0; x < 640; ++x) {
      const float rx = (x - cx) / f, ry = (y - cy) / f;
      float t = 3.0f;
      int obj = 0;
      if (ry > 0 && 0.6f / ry < t) t = 0.6f / ry, obj = 1;
      const float a = rx * rx + ry * ry + 1, b = -2 * (rx * 0.2f + ry * 0.1f + 1.6f);
      const float c = 0.2f * 0.2f + 0.1f * 0.1f + 1.6f * 1.6f - 0.45f * 0.45f;
      const float disc = b * b - 4 * a * c;
      if (disc >= 0 && (-b - std::sqrt(disc)) / (2 * a) < t) t = (-b - std::sqrt(disc)) / (2 * a), obj = 2;
      v.depth(x, y) = static_cast<unsigned short>(std::lround(t * 550.0f));
      const unsigned char shade = ((x / 23) + (y / 17)) % 2 == 0 ? 200 : 90;
      v.color(x, y) = {static_cast<unsigned char>(obj == 1 ? shade : 40),
                       static_cast<unsigned char>(obj == 2 ? shade : 70),
                       static_cast<unsigned char>(obj == 0 ? shade : 30)};
    }
  }
  dasp::Parameters& p = v.parameters;
  p.principal_x = cx;
  p.principal_y = cy;
  p.focal = f;
  // Scale, weights, rounds and base radius: the layer's defaults, which are the program's settings.
  p.count = count;
  return v;
}

// Arguments: superpixel count, thread count.
void BM_ComputeSuperpixels(benchmark::State& state) {
  const View v = make_view(static_cast<unsigned>(state.range(0)));
  const int threads = omp_get_max_threads();
  omp_set_num_threads(static_cast<int>(state.range(1)));
  std::size_t clusters = 0;
  for (auto _ : state) {
    const dasp::Superpixels sp = dasp::ComputeSuperpixels(v.color, v.depth, v.parameters);
    clusters = sp.clusters.size();
    benchmark::DoNotOptimize(clusters);
  }
  omp_set_num_threads(threads);
  state.counters["clusters"] = static_cast<double>(clusters);
}

}  // namespace

BENCHMARK(BM_ComputeSuperpixels)->Args({5000, 1})->Args({500, 1})->Args({5000, 2})->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
