#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <stdexcept>
#include <vector>

#include "dasp/connectivity.h"
#include "dasp/seeds.h"
#include "dasp/superpixels.h"
#include "tests/support/io_test_support.h"
#include "tools/scene/render_view.h"
#include "tools/scene/scene.h"
#include "tools/scene/scene_camera.h"

namespace {

struct Scene {
  slimage::Image3ub color;
  slimage::Image1ui16 depth;
  dasp::Parameters parameters;
};

// The defaults hold the scale, weights, rounds and base radius the program uses.
dasp::Parameters camera_parameters(unsigned w, unsigned h, unsigned count) {
  dasp::Parameters p;
  p.principal_x = 0.5f * (w - 1);
  p.principal_y = 0.5f * (h - 1);
  p.focal = 525.0f;
  p.count = count;
  return p;
}

// View 0 of the sample scene's camera ring with depth noise: shapes of several colours before an
// empty background, which has no depth. Depth is scaled so that its mean is 1000 steps.
Scene generated_scene(unsigned w, unsigned h, unsigned count) {
  const scene::Scene world = scene::make_default_scene();
  const scene::SceneCamera c = scene::make_cameras(world, {8, static_cast<int>(w), static_cast<int>(h)})[0];
  const scene::RenderedView v = scene::render_view(world, c, 0, 0.003, 7);
  Scene s{slimage::Image3ub(w, h), slimage::Image1ui16(w, h), camera_parameters(w, h, count)};
  s.parameters.focal = static_cast<float>(c.fx);
  double sum = 0, n = 0;
  for (double z : v.measured) sum += z, n += z > 0;
  for (std::size_t i = 0; i < v.measured.size(); ++i) {
    s.depth[i] = static_cast<unsigned short>(std::lround(1000.0 * v.measured[i] * n / sum));
    s.color[i] = {v.rgb[3 * i], v.rgb[3 * i + 1], v.rgb[3 * i + 2]};
  }
  return s;
}

Scene flat_scene(unsigned w, unsigned h, unsigned count, unsigned short left, unsigned short right) {
  Scene s{slimage::Image3ub(w, h), slimage::Image1ui16(w, h), camera_parameters(w, h, count)};
  for (unsigned y = 0; y < h; ++y)
    for (unsigned x = 0; x < w; ++x) {
      s.depth(x, y) = x < w / 2 ? left : right;
      s.color(x, y) = {static_cast<unsigned char>(x % 256), static_cast<unsigned char>(y % 256), 128};
    }
  return s;
}

dasp::Superpixels run(const Scene& s) { return dasp::ComputeSuperpixels(s.color, s.depth, s.parameters); }

// Every pixel lies in exactly one cluster, ids are ascending, labels agree, no cluster is empty.
void expect_partition(const dasp::Superpixels& sp) {
  const std::size_t n = static_cast<std::size_t>(sp.width) * sp.height;
  ASSERT_EQ(sp.labels.size(), n);
  std::vector<int> owner(n, -1);
  for (std::size_t k = 0; k < sp.clusters.size(); ++k) {
    const auto& ids = sp.clusters[k].pixel_ids;
    ASSERT_FALSE(ids.empty());
    ASSERT_TRUE(std::is_sorted(ids.begin(), ids.end()));
    for (unsigned id : ids) {
      ASSERT_LT(id, n);
      ASSERT_EQ(owner[id], -1) << "pixel " << id << " in two clusters";
      owner[id] = static_cast<int>(k);
      ASSERT_EQ(sp.labels[id], static_cast<int>(k));
    }
  }
  EXPECT_EQ(std::count(owner.begin(), owner.end(), -1), 0);
}

}  // namespace

TEST(DaspSeeds, CountIsRoundedTotalAtMostOnePerPixel) {
  const unsigned w = 37, h = 23;
  std::vector<float> density(w * h);
  double total = 0;
  for (unsigned i = 0; i < density.size(); ++i) total += density[i] = 0.01f + 0.05f * static_cast<float>(i % 7);
  const auto seeds = dasp::place_seeds(density, w, h);
  EXPECT_EQ(seeds.size(), static_cast<std::size_t>(std::floor(total + 0.5)));
  std::vector<int> used(w * h, 0);
  for (const auto& s : seeds) {
    ASSERT_LT(s.x, w);
    ASSERT_LT(s.y, h);
    EXPECT_EQ(used[s.y * w + s.x]++, 0);
  }
  // Density above one per pixel is capped at one seed per pixel.
  EXPECT_EQ(dasp::place_seeds(std::vector<float>(w * h, 3.0f), w, h).size(), w * h);
  EXPECT_TRUE(dasp::place_seeds(std::vector<float>(w * h, 0.0f), w, h).empty());
  EXPECT_TRUE(dasp::place_seeds({}, 0, 0).empty());
}

TEST(DaspConnectivity, SplitPiecesAndHolesJoinNeighbours) {
  // Label 0 has a big piece on the left and a stray pixel inside label 1; -1 pixels are holes.
  std::vector<int> labels = {0, 0, 0,  1, 1, 1,  //
                             0, 0, -1, 1, 0, 1,  //
                             0, 0, 0,  1, 1, -1};
  dasp::enforce_connectivity(labels, 6, 3, 2);
  const std::vector<int> expected = {0, 0, 0, 1, 1, 1,  //
                                     0, 0, 0, 1, 1, 1,  //
                                     0, 0, 0, 1, 1, 1};
  EXPECT_EQ(labels, expected);
}

// Pixels without depth are in the partition too, in clusters without depth; the result does not
// depend on the thread count.
TEST(DaspSuperpixels, PartitionIncludesPixelsWithoutDepthForAnyThreadCount) {
  const Scene s = generated_scene(200, 150, 400);
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  const auto one = run(s);
  omp_set_num_threads(2);
  const auto two = run(s);
  const auto again = run(s);
  omp_set_num_threads(threads);
  expect_partition(one);
  // The count asks for superpixels over the pixels with depth; the others get clusters of their own.
  const auto with_depth = std::count_if(one.clusters.begin(), one.clusters.end(),
                                        [](const dasp::Cluster& c) { return c.valid_count > 0; });
  EXPECT_NEAR(static_cast<double>(with_depth), 400.0, 60.0);
  EXPECT_LT(static_cast<std::size_t>(with_depth), one.clusters.size());
  ASSERT_EQ(one.clusters.size(), two.clusters.size());
  EXPECT_EQ(one.labels, two.labels);
  EXPECT_EQ(two.labels, again.labels);
  for (std::size_t k = 0; k < one.clusters.size(); ++k) {
    EXPECT_EQ(one.clusters[k].color, two.clusters[k].color);
    EXPECT_EQ(one.clusters[k].depth, two.clusters[k].depth);
  }

  Scene blank = s;
  blank.depth = slimage::Image1ui16(200, 150);
  const auto none = run(blank);
  expect_partition(none);
  EXPECT_NEAR(static_cast<double>(none.clusters.size()), 400.0, 100.0);
}

TEST(DaspSuperpixels, ClustersHaveEqualWorldSize) {
  // Left half at depth 1000, right half at 2000 steps. A far pixel covers four times the world
  // area, so per image area the far half holds four times the clusters, each a quarter the size.
  const Scene s = flat_scene(320, 240, 600, 1000, 2000);
  const auto sp = run(s);
  expect_partition(sp);
  double clusters[2] = {0, 0}, pixels[2] = {0, 0};  // near, far
  for (const auto& c : sp.clusters) {
    ++clusters[c.center.x >= 160];
    pixels[c.center.x >= 160] += c.pixel_ids.size();
  }
  ASSERT_GT(clusters[0], 0);
  EXPECT_GT(clusters[1] / clusters[0], 3.2);
  EXPECT_LT(clusters[1] / clusters[0], 4.8);
  EXPECT_NEAR(pixels[0] / clusters[0] / (pixels[1] / clusters[1]), 4.0, 0.8);
  EXPECT_NEAR(static_cast<double>(sp.clusters.size()), 600.0, 150.0);
}

// Pixels whose cluster lies mostly on the other side of column `fold`.
std::size_t pixels_across(const dasp::Superpixels& sp, unsigned fold) {
  std::size_t across = 0;
  for (const auto& c : sp.clusters) {
    std::size_t left = 0;
    for (unsigned id : c.pixel_ids) left += id % sp.width < fold;
    across += std::min(left, c.pixel_ids.size() - left);
  }
  return across;
}

TEST(DaspSuperpixels, NormalsKeepClustersOffAFold) {
  // One colour, continuous depth, but a 90 degree fold down the middle: only the normal term
  // sees the fold.
  Scene s = flat_scene(240, 160, 300, 0, 0);
  for (unsigned y = 0; y < 160; ++y)
    for (unsigned x = 0; x < 240; ++x) {
      // Planes z = 1.2 -+ X, with X = (x - cx) z / f, meeting at the centre column.
      const float u = std::fabs((x - s.parameters.principal_x) / s.parameters.focal);
      s.depth(x, y) = static_cast<unsigned short>(std::lround(1000.0f * 1.2f / (1.0f + u)));
      s.color(x, y) = {120, 120, 120};
    }
  std::vector<std::size_t> across;
  for (float weight : {0.0f, 1.0f, 4.0f}) {
    s.parameters.weight_normal = weight;
    const auto sp = run(s);
    expect_partition(sp);
    across.push_back(pixels_across(sp, 120));
  }
  EXPECT_LT(across[1], across[0]);
  EXPECT_LT(across[2] * 2, across[0]);
}

TEST(DaspSuperpixels, RejectsBadArguments) {
  Scene s = flat_scene(8, 6, 4, 1000, 1000);
  s.depth = slimage::Image1ui16(8, 5);
  io_test::expect_runtime_error([&] { run(s); },
                                "dasp::ComputeSuperpixels: colour image (8, 6) and depth image (8, 5) differ in size");
  s = flat_scene(8, 6, 4, 1000, 1000);
  s.parameters.focal = 0.0f;
  EXPECT_THROW(run(s), std::runtime_error);
  s.parameters.focal = 500.0f;
  s.parameters.depth_scale = -1.0f;
  EXPECT_THROW(run(s), std::runtime_error);
}
