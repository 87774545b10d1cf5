// Depth-map warping between views and texture projection onto a depth map.

#include <gtest/gtest.h>

#include "ketra/algorithms/basic.h"
#include "src/render/render_depthmap.h"
#include "tests/render/render_test_support.h"

namespace {

class RenderDepthmapTest : public RenderTest {
 protected:
  // Warps a generated view into target. Pixels that saw nothing get a far depth, since the
  // passes take every source depth as valid.
  std::vector<float> warp(const GeneratedView& source, const GeneratedView& target,
                          std::vector<uchar4>* image = nullptr) {
    const Camera& c = source.camera;
    ketra::Array<float, 2> depth = array<float>(c.width, c.height);
    ketra::Array<uchar4, 2> colour = array<uchar4>(c.width, c.height);
    std::vector<float> d(source.depth.data, source.depth.data + source.depth.size());
    for (float& z : d) z = z > 0 ? z : 50.0f;
    upload(depth, d);
    upload(colour, std::vector<uchar4>(c.image.data, c.image.data + c.image.size()));
    RenderBuffer rb = buffer(target.camera.width, target.camera.height);
    render_depthmap(rb, depth, colour, c, target.camera, 0.0f, empty_depth, 1.0f);
    if (image) *image = download(rb.image);
    return download(rb.depth);
  }
};

}  // namespace

// In its own camera (the relative pose is the identity up to rounding) each disk lands on its own
// pixel. Its radius is 0.85 pixel sizes at its depth, which reaches the neighbouring rays only
// beyond 31 degrees off the axis; nearer the axis depth and colour come back as they were.
TEST_F(RenderDepthmapTest, DepthMapRendersBackOntoItsOwnPixels) {
  const GeneratedView& v = generated(0);
  std::vector<uchar4> image;
  const std::vector<float> depth = warp(v, v, &image);
  for (int y = 0; y < v.camera.height; ++y)
    for (int x = 0; x < v.camera.width; ++x) {
      const float ax = (x - v.truth.cx) / v.truth.fx, ay = (y - v.truth.cy) / v.truth.fy;
      if (ax * ax + ay * ay > 0.35f) continue;  // tan(30.6 degrees) squared
      const int i = y * v.camera.width + x;
      const float expected = v.depth(x, y) > 0 ? v.depth(x, y) : 50.0f;
      ASSERT_NEAR(depth[i], expected, 1e-5f * expected) << x << ", " << y;
      const uchar4 in = v.camera.image(x, y);
      ASSERT_LE(std::abs(in.x - image[i].x) + std::abs(in.y - image[i].y) + std::abs(in.z - image[i].z), 3);
      ASSERT_GE(image[i].w, 254);  // 255 * w / w may truncate to 254
    }
}

// In the neighbouring camera the depth is the true one where the source saw the surface well.
// The disks face the source camera, so they leave the surface by up to their radius (0.85
// pixels) times the tangent of its tilt (1.33 at most here): 1.5 pixel sizes.
TEST_F(RenderDepthmapTest, DepthMapWarpsIntoTheNeighbouringCamera) {
  expect_true_depth_where_seen_well(warp(generated(0), generated(1)), generated(0), generated(1), 1.5f);
}

// Source pixel (x, y) lands on target pixel (x, y): unit focal length, integer principal point,
// depth 1 and the identity pose keep every step exact.
class ProjectTextureTest : public RenderTest {
 protected:
  static constexpr int W = 6, H = 5;
  ketra::Array<uchar4, 2> out, target_image;
  ketra::Array<float, 2> depth, target_depth;
  void SetUp() override {
    RenderTest::SetUp();
    out = array<uchar4>(W, H);
    target_image = array<uchar4>(W, H);
    depth = array<float>(W, H);
    target_depth = array<float>(W, H);
    ketra::set(depth, 1.0f);
    ketra::set(target_image, make_uchar4(255, 0, 255, 7));
  }
  std::vector<uchar4> project(std::vector<float> target, float offset) {
    upload(target_depth, target);
    const Projection identity{W, H, 1, 1, 2, 2, {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}, 0, empty_depth};
    project_texture_on_depthmap(out, 1, 1, 2, 2, identity, depth, target_depth, target_image, 0.1f, offset);
    return download(out);
  }
};

bool is(uchar4 c, int r, int g, int b, int a) { return c.x == r && c.y == g && c.z == b && c.w == a; }

// The offset moves both depths, the target's after sampling: a target 0.5 nearer with offset 0.5
// is hidden, not seen.
TEST_F(ProjectTextureTest, PixelsOutsideHiddenAndSeenGetTheirAlphas) {
  std::vector<float> target(W * H, 1.0f), source(W * H, 1.0f);
  target[2 * W + 2] = 0.85f;  // hidden: more than the tolerance in front
  target[2 * W + 3] = 0.95f;  // seen: within the tolerance
  source[1 * W + 1] = 0.0f;   // no depth: at the near limit
  upload(depth, source);
  const std::vector<uchar4> result = project(target, 0.0f);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const uchar4 c = result[y * W + x];
      if (x == 0 || y == 0 || x == W - 1 || y == H - 1 || (x == 1 && y == 1))
        EXPECT_TRUE(is(c, 0, 0, 0, 0)) << x << ", " << y;  // tu or tv on the edge counts as outside
      else if (x == 2 && y == 2)
        EXPECT_TRUE(is(c, 0, 200, 0, 0));
      else
        EXPECT_TRUE(is(c, 255, 0, 255, 255)) << x << ", " << y;
    }
  ketra::set(depth, 1.0f);
  target.assign(W * H, 1.0f);
  target[2 * W + 2] = 0.5f;
  const std::vector<uchar4> offset = project(target, 0.5f);
  EXPECT_TRUE(is(offset[2 * W + 3], 255, 0, 255, 255));
  EXPECT_TRUE(is(offset[2 * W + 2], 0, 200, 0, 0));
}
