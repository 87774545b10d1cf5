#include "tools/scene/photograph_imaging.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "tools/scene/texture.h"

namespace scene {
namespace {

constexpr double kNoise = 2.0 / 255.0;  // standard deviation of the sensor noise

double uniform(uint64_t key) { return static_cast<double>(hash64(key) >> 11) * (1.0 / 9007199254740992.0); }

// Counters of the view's random numbers, apart from those of the depth noise.
uint64_t view_key(uint64_t seed, int view) { return hash64(seed ^ 0x5EED0F1A2B3C4D5Eull) ^ (static_cast<uint64_t>(view) << 40); }

}  // namespace

Exposure view_exposure(uint64_t seed, int view) {
  const uint64_t key = view_key(seed, view);
  return {0.8 + 0.4 * uniform(key ^ (0xA1ull << 32)), 0.08 * (uniform(key ^ (0xB2ull << 32)) - 0.5)};
}

void develop_photograph(RenderedView& v, uint64_t seed, int view_index) {
  const int W = v.width, H = v.height;
  const Exposure e = view_exposure(seed, view_index);
  const uint64_t key = view_key(seed, view_index);
  const std::vector<uint8_t> rendered = v.rgb;
  const auto at = [&](int x, int y, int k) {
    x = std::clamp(x, 0, W - 1), y = std::clamp(y, 0, H - 1);
    return rendered[3 * (static_cast<size_t>(y) * W + x) + k] / 255.0;
  };
  constexpr double taps[3] = {0.25, 0.5, 0.25};
#pragma omp parallel for schedule(static)
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x)
      for (int k = 0; k < 3; ++k) {
        double blurred = 0;
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx) blurred += taps[dy + 1] * taps[dx + 1] * at(x + dx, y + dy, k);
        const size_t i = 3 * (static_cast<size_t>(y) * W + x) + k;
        const double value = e.gain * blurred + e.offset + kNoise * normal_deviate(key + i);
        v.rgb[i] = static_cast<uint8_t>(std::clamp(std::floor(value * 255.0 + 0.5), 0.0, 255.0));
      }
}

}  // namespace scene
