// Depth-map refinement on generated views: what it is for, views with too few neighbours, and
// inputs it refuses.

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <iostream>

#include "src/refine/refine_depthmaps.h"
#include "src/render/depth_from_points.h"
#include "tests/render/render_test_support.h"
#include "tests/support/io_test_support.h"

namespace {

float median(std::vector<float> v) {
  std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
  return v[v.size() / 2];
}

}  // namespace

// Five views 30 degrees apart: the middle three have 3 or 4 neighbours within 60 degrees, the outer
// two have 2. Input: every view's noisy depth as particles, splatted into each view; radius 4 pixels.
// In the middle views the trusted depths move nearer the truth and much of the surface is trusted;
// in the outer views no pixel has 3 neighbours' scores: all move by -radius and none is trusted.
// View 0's image is loaded from its file.
TEST_F(RenderTest, RefinedDepthIsNearerTheTruth) {
  const scene::CameraRing ring{12, 120, 90, 3.0, 3.5, -2.0};
  constexpr int n = 5;
  std::vector<GeneratedView> views;
  std::vector<Camera> cameras;
  std::vector<Camera*> ptrs;
  ParticleSet s;
  double depth_sum = 0, depth_count = 0;
  for (int i = 0; i < n; ++i) {
    const GeneratedView& v = views.emplace_back(make_generated_view(ring, i, 0.003, 7));
    cameras.push_back(v.camera);
    create_particles_from_depthmap(s.particles, s.offsets, s.normals, v.measured, v.normals, v.measured,
                                   v.camera.image, v.camera, 0.0f, 1e30f);
    for (std::size_t p = 0; p < v.depth.size(); ++p) depth_sum += v.depth.data[p], depth_count += v.depth.data[p] > 0;
  }
  const float radius = 4.0f * static_cast<float>(depth_sum / depth_count) / cameras[0].K[0];
  std::vector<CMatrix<float>> maps(n), improved, particle;
  const Points pts = points(s);
  for (int i = 0; i < n; ++i) {
    CMatrix<float3> normals;
    compute_depthmap_and_normals_from_points(maps[i], normals, pts, cameras[i], 0.02f, 0.0f, FLT_MAX, 1.0f);
    ptrs.push_back(&cameras[i]);
  }
  const CMatrix<uchar4> image = cameras[0].image;
  std::vector<unsigned char> rgb;
  for (std::size_t p = 0; p < image.size(); ++p) rgb.insert(rgb.end(), {image.data[p].x, image.data[p].y, image.data[p].z});
  cameras[0].image_filename = io_test::scratch_path("view_0.png");
  io_test::write_raw_png(cameras[0].image_filename, ring.width, ring.height, PNG_COLOR_TYPE_RGB, 8, rgb);
  cameras[0].image = CMatrix<uchar4>();

  refine_depthmaps(improved, particle, maps, ptrs, radius);
  ASSERT_EQ(improved.size(), 5u);
  ASSERT_EQ(particle.size(), 5u);
  EXPECT_TRUE(std::equal(image.data, image.data + image.size(), cameras[0].image.data,
                         [](uchar4 a, uchar4 b) { return a.x == b.x && a.y == b.y && a.z == b.z; }));
  for (int i : {0, n - 1})
    for (std::size_t p = 0; p < maps[i].size(); ++p) {
      ASSERT_EQ(improved[i].data[p], maps[i].data[p] - radius) << i << ": " << p;
      ASSERT_EQ(particle[i].data[p], 0.0f) << i << ": " << p;
    }
  std::vector<float> before, after;
  long surface = 0;
  for (int i = 1; i < n - 1; ++i)
    for (int y = 0; y < ring.height; ++y)
      for (int x = 0; x < ring.width; ++x) {
        if (!interior(views[i], x, y) || maps[i](x, y) >= empty_depth) continue;
        ++surface;
        if (particle[i](x, y) == 0.0f) continue;
        ASSERT_EQ(particle[i](x, y), maps[i](x, y));
        before.push_back(std::fabs(maps[i](x, y) - views[i].depth(x, y)));
        after.push_back(std::fabs(improved[i](x, y) - views[i].depth(x, y)));
      }
  std::cout << "trusted " << before.size() << " of " << surface << " surface pixels, median error before "
            << median(before) << ", after " << median(after) << ", radius " << radius << "\n";
  EXPECT_GT(before.size(), surface / 3);
  EXPECT_LT(median(after), 0.6f * median(before));
}

TEST(RefineDepthmaps, EmptyAndMismatchedInputs) {
  std::vector<CMatrix<float>> improved(2), particle(1);
  refine_depthmaps(improved, particle, {}, {}, 1.0f);
  EXPECT_TRUE(improved.empty() && particle.empty());
  Camera c;
  c.width = 16, c.height = 12;
  c.image.setSize(16, 12);
  std::vector<Camera*> one{&c};
  EXPECT_EQ(message_of([&] { refine_depthmaps(improved, particle, {}, one, 1.0f); }),
            "refine_depthmaps: 0 depth maps for 1 views");
  EXPECT_EQ(message_of([&] { refine_depthmaps(improved, particle, {CMatrix<float>(16, 13)}, one, 1.0f); }),
            "refine_depthmaps: the depth map of view 0 (16, 13) differs in size from its image (16, 12)");
}
