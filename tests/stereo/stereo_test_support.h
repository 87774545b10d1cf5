#pragma once

// Shared pieces of the stereo suites: random textures, cost volumes and hand-made projections
// whose reprojections are exact, and a fixture that frees its arrays and keeps the dumps off.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "ketra/algorithms/basic.h"
#include "src/render/point_batches.h"
#include "src/core/settings.h"
#include "src/render/projection.h"
#include "tests/render/render_test_support.h"

// Deterministic random bytes.
inline std::vector<uchar4> random_image(int W, int H, uint32_t seed) {
  std::vector<uchar4> image(static_cast<std::size_t>(W) * H);
  for (uchar4& p : image) {
    auto next = [&seed] { return static_cast<unsigned char>((seed = seed * 1664525u + 1013904223u) >> 24); };
    p = make_uchar4(next(), next(), next(), 255);
  }
  return image;
}

// ref shifted left by k columns: pixel x holds ref(x + k); the k columns beyond the right edge
// hold other random bytes.
inline std::vector<uchar4> shifted(std::vector<uchar4> const& ref, int W, int k) {
  std::vector<uchar4> out = random_image(W, static_cast<int>(ref.size()) / W, 99);
  for (std::size_t i = 0; i < ref.size(); ++i) {
    const int x = static_cast<int>(i % W);
    if (x + k < W) out[i] = ref[i + k];
  }
  return out;
}

// With fx = fy = 1 and principal point (0, 0), pixel (x, y) at depth d is the point
// ((W - 1 - x) d, (H - 1 - y) d, d); this P adds (sx, sy) to it and keeps w = d, so the pixel
// projects to (W - 1 - x + sx / d, H - 1 - y + sy / d) and samples the other image at array
// pixel (x - sx / d, y - sy / d).
inline ProjectionMatrix shift_projection(float sx, float sy = 0.0f) {
  return ProjectionMatrix{{1, 0, 0, sx, 0, 1, 0, sy, 0, 0, 1, 0}};
}

class StereoTest : public RenderTest {
 protected:
  void SetUp() override {
    RenderTest::SetUp();
    debug_depthmap = false;
    output_directory = QUILLARA_TEST_TMP "/no_such_output";
  }
  // A zeroed cost volume (W, H, L, 2).
  ketra::Array<float, 4> volume(unsigned int W, unsigned int H, unsigned int L) {
    ketra::Array<float, 4> v = owned(ketra::mallocDeviceArray<float>(make_uint4(W, H, L, 2)));
    ketra::set(v, 0.0f);
    return v;
  }
  ketra::Array<uchar4, 2> image(int W, int H, std::vector<uchar4> const& pixels) {
    ketra::Array<uchar4, 2> a = array<uchar4>(W, H);
    upload(a, pixels);
    return a;
  }
};

// The floats of a dump file.
inline std::vector<float> read_floats(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<float> v(std::filesystem::file_size(path) / sizeof(float));
  in.read(reinterpret_cast<char*>(v.data()), static_cast<std::streamsize>(v.size() * sizeof(float)));
  return v;
}

// Cell (x, y, l, plane) of a downloaded volume.
struct Volume {
  std::vector<float> v;
  int W, H, L;
  float sum(int x, int y, int l) const { return v[((static_cast<std::size_t>(l) * H) + y) * W + x]; }
  float count(int x, int y, int l) const {
    return v[((static_cast<std::size_t>(L + l) * H) + y) * W + x];
  }
};
inline Volume read_volume(ketra::Array<float, 4> const& costs) {
  return {download(costs), static_cast<int>(costs.extents.x), static_cast<int>(costs.extents.y),
          static_cast<int>(costs.extents.z)};
}
