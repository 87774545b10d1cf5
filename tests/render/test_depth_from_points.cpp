// Depth and normal maps, contribution flags and camera distances from splatted points.

#include <gtest/gtest.h>

#include "src/render/depth_from_points.h"
#include "tests/render/render_test_support.h"

namespace {
class DepthFromPointsTest : public RenderTest {};
}  // namespace

// The particles of a generated view give back its depth and analytic normals; where nothing was
// seen the depth stays empty and the normal points from the pixel's ray towards the camera.
TEST_F(DepthFromPointsTest, DepthAndNormalsOfAGeneratedViewMatchTheTruth) {
  const GeneratedView& v = generated(2);
  CMatrix<float> depth;
  CMatrix<float3> normals;
  compute_depthmap_and_normals_from_points(depth, normals, points(particles_of(v)), v.camera, 0.02f, 0.0f,
                                           empty_depth, 1.0f);
  ASSERT_TRUE(depth.xSize == v.camera.width && normals.ySize == v.camera.height);
  const ViewFile file = scene::make_view_file(v.truth, "", "");
  int surface = 0, empty = 0;
  for (int y = 0; y < v.camera.height; ++y)
    for (int x = 0; x < v.camera.width; ++x) {
      const float3 n = normals(x, y);
      ASSERT_NEAR(length(n), 1.0f, 1e-5f);
      if (interior(v, x, y)) {
        ++surface;
        ASSERT_NEAR(depth(x, y), v.depth(x, y), 0.01f * footprint(v, x, y)) << x << ", " << y;
        ASSERT_GT(dot(n, v.normals(x, y)), 0.9999f) << x << ", " << y;
      } else if (!near_surface(v, x, y)) {
        ++empty;
        ASSERT_EQ(depth(x, y), empty_depth);
        const scene::Vec3 to_camera = scene::normalize(v.truth.center - scene::back_project(file, x, y, 1.0));
        ASSERT_GT(n.x * to_camera.x + n.y * to_camera.y + n.z * to_camera.z, 0.99999) << x << ", " << y;
      }
    }
  EXPECT_TRUE(surface > 1000 && empty > 100);
}

// A wide disk F in front; behind it a disk B1 that F covers at every pixel, a disk B2 of whose
// two pixels one lies outside F, and a disk Bf that faces away. Only F and B2 reach the visible
// surface, and the smallest camera distance per pixel is theirs plus their radius.
TEST_F(DepthFromPointsTest, ContributionFlagsAndMinimumCameraDistanceOfTheVisiblePoints) {
  constexpr int W = 16, H = 12;
  const Camera camera = pinhole(W, H, 10.0f);
  const float3 f{0.1f, 0.1f, 2.0f}, b1{0.15f, 0.15f, 3.0f}, b2{1.2f, 0.15f, 3.0f}, bf{-1.2f, 0.15f, 3.0f};
  const ParticleSet set = disks({{f, facing(f), 0.74f},    // 3.7 pixels about pixel (8, 6)
                                 {b1, facing(b1), 0.15f},  // half a pixel at pixel (8, 6)
                                 {b2, facing(b2), 0.18f},  // 0.6 pixels about u = 11.5: pixels 11 and 12
                                 {bf, -facing(bf), 0.3f}});
  RenderBuffer rb = buffer(W, H);
  EXPECT_EQ(contributing_points(rb, points(set), camera, 0.02f, 0.0f, empty_depth, 1.0f),
            (std::vector<int>{1, 0, 1, 0}));

  std::vector<float> distance;
  for (const Particle& p : set.particles) distance.push_back(length(p.pos));
  ketra::Array<float, 1> values = array<float, 1>(4);
  upload(values, distance);
  ketra::Array<float, 2> min_distance = array<float>(W, H);
  compute_min_camdistance(min_distance, projection_from_camera(camera, W, H, 0.0f, empty_depth), points(set), values,
                          0.02f, 1.0f);
  const std::vector<float> result = download(min_distance);
  EXPECT_EQ(result[pixel_of(camera, f)], distance[0] + 0.74f);  // B1 lies more than its radius behind
  EXPECT_EQ(result[pixel_of(camera, b2)], distance[2] + 0.18f);
  EXPECT_EQ(result[pixel_of(camera, bf)], empty_depth);
  EXPECT_EQ(result[0], empty_depth);
}
