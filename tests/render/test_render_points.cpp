// The point renderer on generated scenes: particles made from a noise-free view, rendered back
// into their own camera and into a neighbouring one, against the ray-cast truth.

#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstdlib>

#include "src/render/render_points.h"
#include "tests/render/render_test_support.h"
#include "tools/scene/scene.h"

namespace {

struct Scene8 {
  scene::Scene world = scene::make_default_scene();
  std::vector<scene::SceneCamera> cameras;
  Scene8() {
    scene::CameraRing ring;
    ring.views = 8;
    ring.width = 160;
    ring.height = 120;
    ring.principal_offset_x = 3.5;  // an off-centre principal point shows mirroring mistakes
    ring.principal_offset_y = -2.0;
    cameras = scene::make_cameras(world, ring);
  }
};

const Scene8& scene8() {
  static const Scene8 s;
  return s;
}

const GeneratedView& view(int i) {
  static const GeneratedView v0 = generate_view(scene8().world, scene8().cameras[0], 0);
  static const GeneratedView v1 = generate_view(scene8().world, scene8().cameras[1], 1);
  return i == 0 ? v0 : v1;
}

struct Rendered {
  std::vector<float> depth, weight, color_sum;
  std::vector<uchar4> image;
};

class RenderPointsTest : public RenderTest {
 protected:
  Rendered render(const GeneratedView& source, const GeneratedView& target) {
    Points p = points(particles_of(source));
    RenderBuffer rb = buffer(target.camera.width, target.camera.height);
    render_points(rb, p, target.camera, 0.02f, 0.0f, empty_depth, 1.0f);
    return {download(rb.depth), download(rb.weight_sum), download(rb.color_sum), download(rb.image)};
  }
};

}  // namespace

// Rendered into its own camera, every seen pixel has the true depth (each pixel's own disk lies in
// the surface's tangent plane through the pixel's ray) and the input colour, disks spill at most
// one pixel beyond silhouettes, and a pixel no disk reached keeps the clear values.
TEST_F(RenderPointsTest, ParticlesRenderBackIntoTheirOwnCamera) {
  const GeneratedView& v = view(0);
  const Rendered r = render(v, v);
  const int W = v.camera.width, H = v.camera.height;
  int checked = 0;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const int i = y * W + x;
      if (v.depth(x, y) > 0) {
        ASSERT_LT(r.depth[i], empty_depth) << "hole at " << x << ", " << y;
      } else {
        bool next_to_surface = false;
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx) {
            const int xx = x + dx, yy = y + dy;
            next_to_surface |= xx >= 0 && yy >= 0 && xx < W && yy < H && v.depth(xx, yy) > 0;
          }
        if (!next_to_surface) {
          ASSERT_EQ(r.depth[i], empty_depth) << x << ", " << y;
          ASSERT_EQ(r.weight[i], 0.0f);
          ASSERT_EQ(r.image[i].w, 0);
        }
      }
      if (!interior(v, x, y)) continue;
      ++checked;
      ASSERT_NEAR(r.depth[i], v.depth(x, y), 0.01f * footprint(v, x, y)) << x << ", " << y;
      const uchar4 in = v.camera.image(x, y), out = r.image[i];
      // A neighbour's disk reaches a pixel only at its rim, with 0.4 % of the centre's weight: at
      // texture edges colours blend by at most 1.5 %, 3 steps.
      ASSERT_LE(std::abs(in.x - out.x), 3) << x << ", " << y;
      ASSERT_LE(std::abs(in.y - out.y), 3) << x << ", " << y;
      ASSERT_LE(std::abs(in.z - out.z), 3) << x << ", " << y;
      ASSERT_GE(out.w, 254);  // 255 * w / w may truncate to 254
    }
  EXPECT_GT(checked, W * H / 3);
}

// Rendered into the neighbouring camera: wherever the source saw the target's surface well, the
// nearest disk lies on it, so nothing sampled in front of or behind it wins there.
TEST_F(RenderPointsTest, ParticlesRenderIntoANeighbouringCamera) {
  const GeneratedView& source = view(0);
  const GeneratedView& target = view(1);
  const Rendered r = render(source, target);
  const int W = target.camera.width, H = target.camera.height;
  int checked = 0;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      if (!interior(target, x, y) || !seen_well_by(scene8().world, source, target, x, y)) continue;
      ++checked;
      ASSERT_NEAR(r.depth[y * W + x], target.depth(x, y), 0.01f * footprint(target, x, y)) << x << ", " << y;
    }
  EXPECT_GT(checked, W * H / 20);
}

// The minimum is order-free, so the depth image is the same for any thread count; the float
// sums are added in an order that depends on the threads, so they agree to rounding and the
// shaded colours within one step.
TEST_F(RenderPointsTest, ThreadCountChangesOnlyTheLastBitsOfTheSums) {
  const int threads = omp_get_max_threads();
  omp_set_num_threads(1);
  const Rendered one = render(view(0), view(1));
  omp_set_num_threads(2);
  const Rendered two = render(view(0), view(1));
  omp_set_num_threads(threads);
  ASSERT_EQ(one.depth, two.depth);
  for (std::size_t i = 0; i < one.weight.size(); ++i) {
    ASSERT_NEAR(one.weight[i], two.weight[i], 1e-5f * one.weight[i]);
    for (int c = 0; c < 4; ++c) {
      const float a = one.color_sum[c * one.weight.size() + i], b = two.color_sum[c * one.weight.size() + i];
      ASSERT_NEAR(a, b, 1e-5f * a);
    }
    ASSERT_LE(std::abs(one.image[i].x - two.image[i].x), 1);
    ASSERT_LE(std::abs(one.image[i].y - two.image[i].y), 1);
    ASSERT_LE(std::abs(one.image[i].z - two.image[i].z), 1);
    ASSERT_LE(std::abs(one.image[i].w - two.image[i].w), 1);
  }
}
