// Cost of the device layer's launch against a plain OpenMP loop doing the same per-pixel work
// over a 4-megapixel float image in pitched memory.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "device/launch.h"
#include "device/memory.h"

namespace {

constexpr int kWidth = 2048, kHeight = 2048;

struct Images {
  device::PitchedPtr in, out;
  Images() {
    device::allocatePitched(&in, device::makeExtent(kWidth * sizeof(float), kHeight, 1));
    device::allocatePitched(&out, device::makeExtent(kWidth * sizeof(float), kHeight, 1));
    for (int y = 0; y < kHeight; ++y)
      for (int x = 0; x < kWidth; ++x) row(in, y)[x] = static_cast<float>((x * 7 + y * 13) % 255);
  }
  ~Images() {
    device::release(in.ptr);
    device::release(out.ptr);
  }
  static float* row(device::PitchedPtr const& p, int y) {
    return reinterpret_cast<float*>(static_cast<char*>(p.ptr) + static_cast<std::size_t>(y) * p.pitch);
  }
};

inline float work(float v) { return std::sqrt(v * v + 1.0f) * 0.5f + v; }

void BM_LayerLaunch(benchmark::State& state) {
  Images img;
  const device::PitchedPtr in = img.in, out = img.out;
  for (auto _ : state) {
    device::launch(device::Dim3(device::blocksFor(kWidth, 32), device::blocksFor(kHeight, 4)), device::Dim3(32, 4),
                   [=](device::Index const& i) {
                     int x = i.x(), y = i.y();
                     if (x >= kWidth || y >= kHeight) return;
                     Images::row(out, y)[x] = work(Images::row(in, y)[x]);
                   });
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void BM_LayerElements(benchmark::State& state) {
  Images img;
  const device::PitchedPtr in = img.in, out = img.out;
  for (auto _ : state) {
    device::launchElements(device::Dim3(kWidth, kHeight), [=](int x, int y, int) {
      Images::row(out, y)[x] = work(Images::row(in, y)[x]);
    });
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

void BM_PlainOpenMP(benchmark::State& state) {
  Images img;
  const device::PitchedPtr in = img.in, out = img.out;
  for (auto _ : state) {
#pragma omp parallel for schedule(static)
    for (int y = 0; y < kHeight; ++y) {
      const float* src = Images::row(in, y);
      float* dst = Images::row(out, y);
      for (int x = 0; x < kWidth; ++x) dst[x] = work(src[x]);
    }
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kWidth * kHeight);
}

}  // namespace

BENCHMARK(BM_LayerLaunch)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_LayerElements)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PlainOpenMP)->Unit(benchmark::kMillisecond)->UseRealTime();

BENCHMARK_MAIN();
