// The particles of a noise-free generated view rendered back into their own camera and into a
// neighbouring one, against the ray-cast truth.

#include <gtest/gtest.h>
#include <omp.h>

#include <cstdlib>

#include "src/render/render_points.h"
#include "src/render/render_points_blended.h"
#include "tests/render/render_test_support.h"

namespace {

struct Rendered {
  std::vector<float> depth, weight, color_sum;
  std::vector<uchar4> image;
};

class RenderPointsTest : public RenderTest {
 protected:
  Rendered render(const GeneratedView& source, const GeneratedView& target) {
    RenderBuffer rb = buffer(target.camera.width, target.camera.height);
    render_points(rb, points(particles_of(source)), target.camera, 0.02f, 0.0f, empty_depth, 1.0f);
    return {download(rb.depth), download(rb.weight_sum), download(rb.color_sum), download(rb.image)};
  }
};

}  // namespace

// Each pixel's own disk lies in the surface's tangent plane through the pixel's ray: seen pixels
// get the true depth and the input colour, disks spill at most one pixel past silhouettes, and a
// pixel no disk reached keeps the clear values.
TEST_F(RenderPointsTest, ParticlesRenderBackIntoTheirOwnCamera) {
  const GeneratedView& v = generated(0);
  const Rendered r = render(v, v);
  const int W = v.camera.width;
  int checked = 0;
  for (int y = 0; y < v.camera.height; ++y)
    for (int x = 0; x < W; ++x) {
      const int i = y * W + x;
      if (v.depth(x, y) > 0) {
        ASSERT_LT(r.depth[i], empty_depth) << "hole at " << x << ", " << y;
      }
      if (!near_surface(v, x, y)) {
        ASSERT_TRUE(r.depth[i] == empty_depth && r.weight[i] == 0.0f && r.image[i].w == 0) << x << ", " << y;
      }
      if (!interior(v, x, y)) continue;
      ++checked;
      ASSERT_NEAR(r.depth[i], v.depth(x, y), 0.01f * footprint(v, x, y)) << x << ", " << y;
      // A neighbour's disk reaches a pixel only at its rim, with 0.4 % of the centre's weight: at
      // texture edges colours blend by at most 1.5 %, 3 steps. 255 * w / w may truncate to 254.
      const uchar4 in = v.camera.image(x, y), out = r.image[i];
      ASSERT_TRUE(std::abs(in.x - out.x) <= 3 && std::abs(in.y - out.y) <= 3 && std::abs(in.z - out.z) <= 3 &&
                  out.w >= 254)
          << x << ", " << y;
    }
  EXPECT_GT(checked, 2000);
}

// Wherever the source saw the target's surface well the nearest disk lies on it, so nothing
// sampled in front of it or behind it along the target's ray wins there.
TEST_F(RenderPointsTest, ParticlesRenderIntoANeighbouringCamera) {
  expect_true_depth_where_seen_well(render(generated(0), generated(1)).depth, generated(0), generated(1), 0.01f);
}

// The minimum is order-free, so the depth image is the same for any thread count. The float
// sums are added in an order that depends on the threads: they agree to rounding, and the
// truncated colours within one step.
TEST_F(RenderPointsTest, ThreadCountChangesOnlyTheLastBitsOfTheSums) {
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  const Rendered one = render(generated(0), generated(1));
  omp_set_num_threads(2);
  const Rendered two = render(generated(0), generated(1));
  omp_set_num_threads(threads);
  ASSERT_EQ(one.depth, two.depth);
  for (std::size_t i = 0; i < one.weight.size(); ++i)
    ASSERT_NEAR(one.weight[i], two.weight[i], 1e-5f * one.weight[i]);
  for (std::size_t i = 0; i < one.color_sum.size(); ++i)
    ASSERT_NEAR(one.color_sum[i], two.color_sum[i], 1e-5f * one.color_sum[i]);
  for (std::size_t i = 0; i < one.image.size(); ++i) {
    const uchar4 a = one.image[i], b = two.image[i];
    ASSERT_TRUE(std::abs(a.x - b.x) <= 1 && std::abs(a.y - b.y) <= 1 && std::abs(a.z - b.z) <= 1 &&
                std::abs(a.w - b.w) <= 1);
  }
}

// Three disks on one ray, 1.5 and 5 radii apart: the plain rendering shows the nearest one alone,
// the blended one the mean depth and colour of the two within three radii, and not the third.
TEST_F(RenderPointsTest, BlendedRenderingTakesTheMeanOfTheDisksWithinItsTolerance) {
  const Camera camera = pinhole(41, 31, 40.0f);
  const float3 toward = make_float3(0.0f, 0.6f, -0.8f);  // faces the camera, no tie in the frame choice
  const Points layer = points(disks({{make_float3(0, 0, 2.0f), toward, 0.1f, make_uchar4(100, 60, 20, 255)},
                                     {make_float3(0, 0, 2.15f), toward, 0.1f, make_uchar4(200, 160, 120, 255)},
                                     {make_float3(0, 0, 2.5f), toward, 0.1f, make_uchar4(0, 0, 0, 255)}}));
  const int centre = pixel_of(camera, make_float3(0, 0, 2.0f));
  RenderBuffer rb = buffer(camera.width, camera.height);
  render_points(rb, layer, camera, 0.02f, 0.0f, empty_depth, 1.0f);
  EXPECT_EQ(download(rb.depth)[centre], 2.0f);
  EXPECT_EQ(download(rb.image)[centre].x, 100);

  ketra::Array<float, 2> depth_sum = array<float>(camera.width, camera.height);
  render_points_blended(rb, depth_sum, projection_from_camera(camera, camera.width, camera.height, 0.0f, empty_depth),
                        layer, 3.0f);
  EXPECT_NEAR(download(rb.depth)[centre], 2.075f, 1e-5f);
  const uchar4 c = download(rb.image)[centre];
  EXPECT_TRUE(std::abs(c.x - 150) <= 1 && std::abs(c.y - 110) <= 1 && std::abs(c.z - 70) <= 1)
      << int(c.x) << " " << int(c.y) << " " << int(c.z);
  // Where no disk reached, the depth stays empty.
  EXPECT_EQ(download(rb.depth)[0], empty_depth);
}
