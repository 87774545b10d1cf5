// The row forms of the matching kernels, which compute the pixels of a block row side by side,
// against the one-pixel rules they stand for (reprojection, texture reads, window sums), bit for
// bit, on an image width that leaves partial groups of lanes at the end of every row.

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>

#include "src/render/point_batches.h"
#include "src/stereo/depthmap_estimation_kernels.h"
#include "src/stereo/matching_costs.h"
#include "src/stereo/sgm_minima.h"
#include "src/stereo/sweep_geometry.h"
#include "tests/stereo/stereo_test_support.h"

using namespace depthmap_estimation_kernels;

namespace {

constexpr int W = 45, H = 13;  // 45 = 32 + 8 + 5: whole lane groups, and a tail of 5

// A slight rotation and scale with fx = 37: positions between pixels, some outside the image.
const ProjectionMatrix kP{{36.2f, 2.1f, 19.0f, 0.3f, -1.7f, 36.9f, 9.0f, 0.1f, 0.01f, -0.02f, 1.0f, 0.05f}};
const SweepCamera kCamera{1.0f / 37.0f, 1.0f / 37.0f, 19.3f, 9.6f, kP};

class LanesTest : public StereoTest {
 protected:
  void bind(device::Texture<uchar4, device::ReadMode::NormalizedFloat>& t, device::FilterMode f,
            ketra::Array<uchar4, 2> const& a) {
    t.filter = f;
    std::size_t offset = 1;
    device::bindTexture2D(&offset, t, a.data, W, H, a.pitch.y);
    ASSERT_EQ(offset, 0u);
  }
};

}  // namespace

// Every cell of the volume gets what the texture reads at the pixel and at its reprojection give,
// and a count of one, or nothing where the reprojection leaves the other view. The warp of one
// depth gives the same reads rounded to bytes.
TEST_F(LanesTest, SingleCostsAndTheWarpReadAsTheTexturesDo) {
  constexpr int L = 20;
  constexpr float first = 1.5f, last = 4.0f;
  ketra::Array<uchar4, 2> ref = image(W, H, random_image(W, H, 21)), other = image(W, H, random_image(W, H, 22));
  ketra::Array<float, 4> costs = volume(W, H, L);
  add_matching_costs(costs, ref, other, first, last, 37.0f, 37.0f, kCamera.cx, kCamera.cy, kP, SAD);
  const Volume v = read_volume(costs);
  bind(ref_img_tex, device::FilterMode::Point, ref);
  bind(img_tex, device::FilterMode::Linear, other);
  const float a = 1.0f / first, step = (1.0f / last - a) / static_cast<float>(L - 1);
  int outside = 0;
  for (int l = 0; l < L; ++l)
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        const Reprojection r = reproject(x, y, label_depth<true>(a, step, l), W, H, kCamera);
        if (!inside(r, W, H)) {
          ++outside;
          ASSERT_EQ(v.count(x, y, l), 0.0f);
          ASSERT_EQ(v.sum(x, y, l), 0.0f);
          continue;
        }
        const float4 p = device::tex2D(ref_img_tex, x + 0.5f, y + 0.5f);
        const float4 o = device::tex2D(img_tex, (W - 1 - r.px) + 0.5f, (H - 1 - r.py) + 0.5f);
        ASSERT_EQ(v.count(x, y, l), 1.0f);
        ASSERT_EQ(v.sum(x, y, l), std::fabs(o.x - p.x) + std::fabs(o.y - p.y) + std::fabs(o.z - p.z))
            << x << ", " << y << ", " << l;
      }
  EXPECT_GT(outside, 100);

  const float d = 2.5f;
  ketra::Array<uchar4, 2> warped = array<uchar4>(W, H);
  add_matching_costs_warp_kernel(render_launch::pixel_shape(W, H), warped, d, kCamera.inv_fx, kCamera.inv_fy,
                                 kCamera.cx, kCamera.cy, kP, 37.0f);
  const std::vector<uchar4> got = download(warped);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const Reprojection r = reproject(x, y, d, W, H, kCamera);
      const uchar4 g = got[y * W + x];
      if (!inside(r, W, H)) {
        ASSERT_EQ(g.w, 0);
        continue;
      }
      const float4 c = device::tex2D(img_tex, (W - 1 - r.px) + 0.5f, (H - 1 - r.py) + 0.5f);
      ASSERT_EQ(g.x, static_cast<int>(std::nearbyint(c.x * 255.0f))) << x << ", " << y;
      ASSERT_EQ(g.y, static_cast<int>(std::nearbyint(c.y * 255.0f)));
      ASSERT_EQ(g.z, static_cast<int>(std::nearbyint(c.z * 255.0f)));
      ASSERT_EQ(g.w, 255);
    }
}

// Window means of every pixel, summed row by row in order as sum * (1 / 255), then times 1 / 49;
// (0, 0, 0, 0) where the window leaves the image or holds a pixel of alpha 0.
TEST_F(LanesTest, WindowMeansAreTheRowByRowSums) {
  std::vector<uchar4> pixels = random_image(W, H, 23);
  pixels[6 * W + 12].w = 0;
  ketra::Array<ushort4, 2> rows = array<ushort4>(W, H);
  ketra::Array<float4, 2> means = array<float4>(W, H);
  add_matching_costs_mean_kernel1<32, 4, 3>(render_launch::pixel_shape(W, H), rows, image(W, H, pixels));
  add_matching_costs_mean_kernel2<3>(render_launch::pixel_shape(W, H), means, rows);
  const std::vector<float4> m = download(means);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const float4 got = m[y * W + x];
      bool valid = x >= 3 && x < W - 3 && y >= 3 && y < H - 3;
      float sums[3] = {0, 0, 0};
      for (int v = y - 3; v <= y + 3 && valid; ++v) {
        unsigned row[3] = {0, 0, 0};
        for (int u = x - 3; u <= x + 3; ++u) {
          const uchar4 p = pixels[v * W + u];
          valid &= p.w != 0;
          row[0] += p.x, row[1] += p.y, row[2] += p.z;
        }
        for (int c = 0; c < 3; ++c) sums[c] += row[c] * (1.0f / 255.0f);
      }
      ASSERT_EQ(got.w, valid ? 1.0f : 0.0f) << x << ", " << y;
      if (!valid) continue;
      ASSERT_EQ(got.x, sums[0] * (1.0f / 49.0f)) << x << ", " << y;
      ASSERT_EQ(got.y, sums[1] * (1.0f / 49.0f));
      ASSERT_EQ(got.z, sums[2] * (1.0f / 49.0f));
    }
}

// The path-cost minima of curves long enough for the lanes (37 labels: whole groups and a tail),
// with ties and plateaus: the first smallest sum and the smallest valley two labels or more away,
// as a plain scan finds them.
TEST_F(LanesTest, PathMinimaAreThoseOfThePlainScan) {
  constexpr int L = 37, pixels = 300;
  std::vector<float> S(L * pixels);
  uint32_t seed = 17;
  for (float& v : S) v = static_cast<float>((seed = seed * 1664525u + 1013904223u) >> 28);  // 0 .. 15: many ties
  ketra::Array<float, 3> s = array<float, 3>(L, pixels, 1);
  upload(s, S);
  ketra::Array<float, 3> minima = array<float, 3>(pixels, 1, 2);
  sgm_path_minima(minima, s);
  const std::vector<float> got = download(minima);
  for (int x = 0; x < pixels; ++x) {
    const float* c = &S[x * L];
    int b = 0;
    for (int l = 1; l < L; ++l) b = c[l] < c[b] ? l : b;
    float second = FLT_MAX;
    for (int l = 0; l < L; ++l)
      if ((l == 0 || c[l] <= c[l - 1]) && (l == L - 1 || c[l] <= c[l + 1]) && std::abs(l - b) > 1)
        second = std::min(second, c[l]);
    ASSERT_EQ(got[x], c[b]) << x;
    ASSERT_EQ(got[pixels + x], second) << x;
  }
}
