// Edge cases of the splatting passes, on hand-placed disks before a camera at the origin.

#include <gtest/gtest.h>

#include <cmath>

#include "ketra/algorithms/basic.h"
#include "src/render/render_points.h"
#include "tests/render/render_test_support.h"

namespace {

constexpr int W = 16, H = 12;
const Camera camera = pinhole(W, H, 10.0f);        // principal point (7.5, 5.5)
const float3 tilted = make_float3(0.0f, 0.6f, -0.8f);  // faces the camera, no tie in the frame choice

class SplattingTest : public RenderTest {
 protected:
  RenderBuffer rb;
  void SetUp() override {
    RenderTest::SetUp();
    rb = buffer(W, H);
  }
  void render(std::vector<Disk> const& list, float near = 0.0f, float far = empty_depth) {
    render_points(rb, points(disks(list)), camera, 0.02f, near, far, 1.0f);
  }
};

}  // namespace

// A disk seen exactly side-on is dropped by the visibility pass's view test but kept by the
// attribute pass's axis test, which reaches only the pixels whose rays lie in its plane, as NaN.
TEST_F(SplattingTest, SideOnDiskIsDroppedByTheViewTestOnly) {
  const float s = 1.0f / std::sqrt(5.0f);
  render({{{1.1f, 0, 2}, {2 * s, 0.0f, -(1.1f * s)}, 0.2f}});  // dot(p, n) == 0 exactly
  EXPECT_EQ(download(rb.depth), std::vector<float>(W * H, empty_depth));
  const std::vector<float> weight = download(rb.weight_sum);
  for (int i = 0; i < W * H; ++i)
    ASSERT_TRUE(weight[i] == 0.0f || (std::isnan(weight[i]) && i % W == pixel_of(camera, {1.1f, 0, 2}) % W)) << i;
}

// Disks at either end of the depth window and disks whose box lies off the image touch nothing;
// moved just inside, each is drawn.
TEST_F(SplattingTest, DisksAtTheLimitsOfTheWindowAndTheImageAreDropped) {
  auto centred = [](float z) { return Disk{{0.05f * z, 0.05f * z, z}, tilted, 0.1f * z}; };  // on pixel (8, 6)
  auto at = [](float x, float y) { return Disk{{x, y, 2}, facing({x, y, 2}), 0.2f}; };       // box of 3 pixels
  render({centred(1), centred(4), at(-1.9f, 0.1f), at(1.9f, 0.1f), at(0.1f, 1.7f)}, 1.0f, 4.0f);
  EXPECT_EQ(download(rb.depth), std::vector<float>(W * H, empty_depth));
  EXPECT_EQ(download(rb.weight_sum), std::vector<float>(W * H, 0.0f));
  for (const Disk& d : {centred(1.001f), centred(3.999f), at(-1.5f, 0.1f), at(1.5f, 0.1f), at(0.1f, 1.1f)}) {
    render({d}, 1.0f, 4.0f);
    EXPECT_NEAR(download(rb.depth)[pixel_of(camera, d.p)], d.p.z, 1e-3f) << d.p.x << ", " << d.p.y << ", " << d.p.z;
  }
}

// The tangent frame takes its seed from the strictly smallest component of the normal. With x
// and y tied the last branch gives a valid frame unless both are 0: a disk facing the camera
// exactly gets a zero seed and a NaN frame, which no depth test rejects and no minimum accepts.
TEST_F(SplattingTest, TiedComponentsTakeTheLastFrameBranch) {
  const float3 p = make_float3(0.1f, 0.1f, 2.0f);
  render({{p, {0.6f, 0.6f, -0.52915026f}, 0.2f}});
  EXPECT_NEAR(download(rb.depth)[pixel_of(camera, p)], 2.0f, 1e-5f);
  render({{p, {0, 0, -1}, 0.2f, make_uchar4(200, 200, 200, 255)}});
  EXPECT_EQ(download(rb.depth), std::vector<float>(W * H, empty_depth));
  EXPECT_TRUE(std::isnan(download(rb.weight_sum)[pixel_of(camera, p)]));
  EXPECT_EQ(download(rb.image)[pixel_of(camera, p)].x, 0);
}

// At one pixel: two disks at the same depth and one less than its radius behind are all in the
// sums; one more than its radius behind is not.
TEST_F(SplattingTest, AttributesSumEveryDiskWithinItsRadiusBehindTheNearestDepth) {
  auto on_ray = [](float z, uchar4 c) { return Disk{{0.05f * z, 0.05f * z, z}, tilted, 0.2f, c}; };
  render({on_ray(2.0f, make_uchar4(240, 0, 0, 255)), on_ray(2.0f, make_uchar4(0, 0, 240, 255)),
          on_ray(2.1f, make_uchar4(0, 240, 0, 255)), on_ray(2.5f, make_uchar4(255, 255, 255, 255))});
  const int i = pixel_of(camera, {0.1f, 0.1f, 2.0f});
  EXPECT_NEAR(download(rb.depth)[i], 2.0f, 1e-6f);
  EXPECT_NEAR(download(rb.weight_sum)[i], 3 * 4.1777137f, 1e-4f);
  const uchar4 c = download(rb.image)[i];
  EXPECT_TRUE(std::abs(c.x - 80) <= 1 && std::abs(c.y - 80) <= 1 && std::abs(c.z - 80) <= 1 && c.w >= 254);
}

// Past 2^24 points a block count computed in float loses the tail; past 8388480 points (65535
// blocks of 128) the passes run in a second batch. All points but the first of the second batch
// and the very last have a zero normal, which both cull tests drop; those two must be drawn.
TEST_F(SplattingTest, PointsBeyondTheFirstBatchAndBeyondFloatPrecisionAreDrawn) {
  const unsigned int n = (1u << 24) + 1;
  Points p{array<float>(n, 3), array<float>(n, 3), array<uchar4, 1>(n), array<float, 1>(n)};
  ketra::set(p.positions, 0.0f);
  ketra::set(p.normals, 0.0f);
  ketra::set(p.radii, 0.1f);
  const float3 a = make_float3(-0.15f, 0.05f, 2.0f), b = make_float3(0.15f, 0.05f, 2.0f);
  auto place = [&](unsigned int i, float3 q, uchar4 c) {
    const ketra::Range at(static_cast<int>(i), static_cast<int>(i));
    upload(ketra::block(ketra::internal::as4D(p.positions), at), {q.x, q.y, q.z});
    upload(ketra::block(ketra::internal::as4D(p.normals), at), {tilted.x, tilted.y, tilted.z});
    upload(ketra::block(ketra::internal::as4D(p.colors), at), {c});
  };
  place(65535u * 128u, a, make_uchar4(255, 0, 0, 255));
  place(n - 1, b, make_uchar4(0, 0, 255, 255));
  render_points(rb, p, camera, 0.02f, 0.0f, empty_depth, 1.0f);
  const std::vector<uchar4> image = download(rb.image);
  EXPECT_GE(image[pixel_of(camera, a)].x, 254);  // 255 * w / w may truncate to 254
  EXPECT_GE(image[pixel_of(camera, b)].z, 254);
}
