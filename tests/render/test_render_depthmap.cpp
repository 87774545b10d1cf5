// Depth-map warping between views and texture projection onto a depth map.

#include <gtest/gtest.h>

#include <cmath>

#include "ketra/algorithms/basic.h"
#include "src/render/device_arrays.h"
#include "src/render/matrix4.h"
#include "src/render/render_depthmap.h"
#include "tests/render/render_test_support.h"
#include "tools/scene/scene.h"

namespace {

class RenderDepthmapTest : public RenderTest {
 protected:
  // The depth map and image of a generated view on the device; pixels that saw nothing get a far
  // depth, since the passes take every source depth as valid.
  void upload_view(const GeneratedView& v, ketra::Array<float, 2>& depth, ketra::Array<uchar4, 2>& image) {
    const auto w = static_cast<unsigned int>(v.camera.width), h = static_cast<unsigned int>(v.camera.height);
    depth = owned(allocate_pitched<float, 2>(w, h, 1));
    image = owned(allocate_pitched<uchar4, 2>(w, h, 1));
    std::vector<float> d(v.depth.data, v.depth.data + v.depth.size());
    for (float& z : d) z = z > 0 ? z : 50.0f;
    upload(depth, d);
    upload(image, std::vector<uchar4>(v.camera.image.data, v.camera.image.data + v.camera.image.size()));
  }
};

struct Views {
  scene::Scene world = scene::make_default_scene();
  std::vector<GeneratedView> views;
  Views() {
    scene::CameraRing ring;
    ring.views = 8;
    ring.width = 120;
    ring.height = 90;
    ring.principal_offset_y = 1.5;
    const std::vector<scene::SceneCamera> cameras = scene::make_cameras(world, ring);
    views = {generate_view(world, cameras[5], 5), generate_view(world, cameras[6], 6)};
  }
};

const Views& views() {
  static const Views v;
  return v;
}

}  // namespace

// Warped into its own camera (the relative pose is the identity up to rounding), each pixel's
// disk lands on its own pixel, and disks of 0.85 pixels never reach their neighbours' centres:
// depth and colour come back unchanged.
TEST_F(RenderDepthmapTest, DepthMapRendersBackOntoItsOwnPixels) {
  const GeneratedView& v = views().views[0];
  ketra::Array<float, 2> depth;
  ketra::Array<uchar4, 2> image;
  upload_view(v, depth, image);
  RenderBuffer rb = buffer(v.camera.width, v.camera.height);
  render_depthmap(rb, depth, image, v.camera, v.camera, 0.0f, empty_depth, 1.0f);
  const std::vector<float> out_depth = download(rb.depth);
  const std::vector<uchar4> out_image = download(rb.image);
  for (int y = 0; y < v.camera.height; ++y)
    for (int x = 0; x < v.camera.width; ++x) {
      const int i = y * v.camera.width + x;
      const float expected = v.depth(x, y) > 0 ? v.depth(x, y) : 50.0f;
      ASSERT_NEAR(out_depth[i], expected, 1e-5f * expected) << x << ", " << y;
      const uchar4 in = v.camera.image(x, y), out = out_image[i];
      ASSERT_LE(std::abs(in.x - out.x) + std::abs(in.y - out.y) + std::abs(in.z - out.z), 3) << x << ", " << y;
      ASSERT_GE(out.w, 254);
    }
}

// Warped into the neighbouring camera, the depth is the true depth where the source saw the
// same surface well. The disks face the source camera, so they leave the surface by up to their
// radius (0.85 pixels) times the tangent of its tilt (1.33 at most here): 1.5 pixel sizes.
TEST_F(RenderDepthmapTest, DepthMapWarpsIntoTheNeighbouringCamera) {
  const GeneratedView& source = views().views[0];
  const GeneratedView& target = views().views[1];
  ketra::Array<float, 2> depth;
  ketra::Array<uchar4, 2> image;
  upload_view(source, depth, image);
  RenderBuffer rb = buffer(target.camera.width, target.camera.height);
  render_depthmap(rb, depth, image, source.camera, target.camera, 0.0f, empty_depth, 1.0f);
  const std::vector<float> out = download(rb.depth);
  int checked = 0;
  for (int y = 0; y < target.camera.height; ++y)
    for (int x = 0; x < target.camera.width; ++x) {
      if (!interior(target, x, y) || !seen_well_by(views().world, source, target, x, y)) continue;
      ++checked;
      ASSERT_NEAR(out[y * target.camera.width + x], target.depth(x, y), 1.5f * footprint(target, x, y)) << x << ", " << y;
    }
  EXPECT_GT(checked, 500);
}

// Source pixel (x, y) lands on target pixel (x, y): unit focal length, integer principal point,
// depth 1 and the identity pose keep every step exact.
class ProjectTextureTest : public RenderTest {
 protected:
  static constexpr int W = 6, H = 5;
  Projection relative{W, H, 1.0f, 1.0f, 2.0f, 2.0f, {1, 0, 0, 0, 1, 0, 0, 0, 1}, {0, 0, 0}, 0.0f, empty_depth};
  ketra::Array<uchar4, 2> out, target_image;
  ketra::Array<float, 2> depth, target_depth;
  void SetUp() override {
    RenderTest::SetUp();
    out = owned(allocate_pitched<uchar4, 2>(W, H, 1));
    target_image = owned(allocate_pitched<uchar4, 2>(W, H, 1));
    depth = owned(allocate_pitched<float, 2>(W, H, 1));
    target_depth = owned(allocate_pitched<float, 2>(W, H, 1));
    ketra::set(depth, 1.0f);
    ketra::set(target_depth, 1.0f);
    ketra::set(target_image, make_uchar4(255, 0, 255, 7));
  }
  std::vector<uchar4> project(float tolerance, float offset) {
    project_texture_on_depthmap(out, 1.0f, 1.0f, 2.0f, 2.0f, relative, depth, target_depth, target_image, tolerance,
                                offset);
    return download(out);
  }
};

bool is(uchar4 c, int r, int g, int b, int a) { return c.x == r && c.y == g && c.z == b && c.w == a; }

TEST_F(ProjectTextureTest, PixelsOutsideHiddenAndSeenGetTheirAlphas) {
  std::vector<float> near(W * H, 1.0f), source(W * H, 1.0f);
  near[2 * W + 2] = 0.85f;  // hidden: more than the tolerance in front
  near[2 * W + 3] = 0.95f;  // seen: within the tolerance
  upload(target_depth, near);
  source[1 * W + 1] = 0.0f;  // no depth: at the near limit
  upload(depth, source);
  const std::vector<uchar4> result = project(0.1f, 0.0f);
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
}

TEST_F(ProjectTextureTest, OffsetShiftsBothDepthsTheTargetsAfterSampling) {
  std::vector<float> near(W * H, 1.0f);
  near[2 * W + 2] = 0.5f;
  upload(target_depth, near);
  const std::vector<uchar4> result = project(0.1f, 0.5f);
  EXPECT_TRUE(is(result[2 * W + 3], 255, 0, 255, 255));
  EXPECT_TRUE(is(result[2 * W + 2], 0, 200, 0, 0));
}

TEST(Matrix4, InverseOfAGeneralMatrix) {
  const Matrix4 a{{2, 1, 0, 3, -1, 4, 2, 0, 0.5f, 0, 1, -2, 1, 1, 1, 5}};
  Matrix4 inverse;
  ASSERT_TRUE(invert(a, inverse));
  const Matrix4 product = multiply(a, inverse);
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(product.m[i], i % 5 == 0 ? 1.0f : 0.0f, 1e-5f) << i;
  EXPECT_FALSE(invert(Matrix4{{1, 2, 3, 4, 2, 4, 6, 8, 0, 1, 0, 0, 0, 0, 1, 0}}, inverse));
  EXPECT_EQ(message_of([] { relative_projection(Camera(), pinhole(4, 4, 1.0f), 4, 4, 0.0f, 1.0f); }),
            "relative_projection: the pose of the source camera cannot be inverted");
}
