// Edge cases of the render buffer, the point upload and the splatting passes, on hand-placed disks
// seen by a camera at the origin looking along +z.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "ketra/algorithms/basic.h"
#include "device/vector_math.h"
#include "src/render/device_arrays.h"
#include "src/render/render_points.h"
#include "tests/render/render_test_support.h"

namespace {

constexpr int W = 16, H = 12;
const Camera camera = pinhole(W, H, 10.0f);
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
  float depth_at(int2 p) { return download(rb.depth)[p.y * W + p.x]; }
};

}  // namespace

TEST_F(SplattingTest, PointsUploadAtTheirCurrentPositionsWithTheGivenNormals) {
  ParticleSet s = disks({{{1, 2, 3}, {0, 0, 1}, 0.5f, make_uchar4(1, 2, 3, 4)}, {{4, 5, 6}, {0, 1, 0}, 0.25f}});
  s.particles[0].dir = make_float3(0.0f, 0.6f, 0.8f);
  s.offsets[0] = 2.0f;
  s.particles[1].init_normal = make_float3(1.0f, 0.0f, 0.0f);  // not what gets uploaded
  const Points p = points(s);
  EXPECT_EQ(download(p.positions), (std::vector<float>{1, 4, 2 + 2 * 0.6f, 5, 3 + 2 * 0.8f, 6}));
  EXPECT_EQ(download(p.normals), (std::vector<float>{0, 0, 0, 1, 1, 0}));
  EXPECT_EQ(download(p.radii), (std::vector<float>{0.5f, 0.25f}));
  const uchar4 c = download(p.colors)[0];
  EXPECT_EQ((std::vector<int>{c.x, c.y, c.z, c.w}), (std::vector<int>{1, 2, 3, 4}));

  EXPECT_EQ(message_of([] { createPoints({}, {}, {}); }), "ketra::mallocDeviceArray: all extents must be >= 1");
}

TEST_F(SplattingTest, ClearSetsColourAndDepthAndZeroesTheSums) {
  ketra::set(rb.color_sum, 7.0f);
  ketra::set(rb.normal_sum, -1.0f);
  ketra::set(rb.weight_sum, 3.0f);
  clearRenderBuffer(rb, make_uchar4(9, 8, 7, 6), 42.0f);
  EXPECT_EQ(download(rb.depth), std::vector<float>(W * H, 42.0f));
  EXPECT_EQ(download(rb.color_sum), std::vector<float>(4 * W * H, 0.0f));
  EXPECT_EQ(download(rb.normal_sum), std::vector<float>(3 * W * H, 0.0f));
  EXPECT_EQ(download(rb.weight_sum), std::vector<float>(W * H, 0.0f));
  for (const uchar4 c : download(rb.image)) ASSERT_TRUE(c.x == 9 && c.y == 8 && c.z == 7 && c.w == 6);
}

// A disk seen exactly side-on is dropped by the visibility pass's view test but kept by the
// attribute pass's axis test, which reaches only the pixels whose rays lie in its plane, as NaN.
TEST_F(SplattingTest, SideOnDiskIsDroppedByTheViewTestOnly) {
  const float s = 1.0f / std::sqrt(5.0f);
  const float3 side_on = make_float3(2 * s, 0.0f, -(1.1f * s));  // dot((1.1, 0, 2), n) == 0 exactly
  render({{{1.1f, 0, 2}, side_on, 0.2f}});
  EXPECT_EQ(download(rb.depth), std::vector<float>(W * H, empty_depth));
  const std::vector<float> weight = download(rb.weight_sum);
  for (int i = 0; i < W * H; ++i)
    ASSERT_TRUE(weight[i] == 0.0f || (std::isnan(weight[i]) && i % W == pixel_of(camera, {1.1f, 0, 2}).x)) << i;
}

// Disks at either end of the depth window and disks whose box lies off the image touch nothing;
// nudged just inside, each of them is drawn.
TEST_F(SplattingTest, DisksOnTheLimitsOfTheWindowAndTheImageAreDropped) {
  auto centred = [](float z) { return make_float3(0.05f * z, 0.05f * z, z); };  // on pixel centre (8, 6)
  auto facing = [](float3 p) { return -p / length(p); };
  auto box_case = [&](float x, float y) { return Disk{{x, y, 2}, facing({x, y, 2}), 0.2f}; };
  const std::vector<Disk> dropped = {{centred(1), tilted, 0.1f}, {centred(4), tilted, 0.4f}, box_case(-1.9f, 0.1f),
                                     box_case(1.9f, 0.1f), box_case(0.1f, 1.7f)};
  render(dropped, 1.0f, 4.0f);
  EXPECT_EQ(download(rb.depth), std::vector<float>(W * H, empty_depth));
  EXPECT_EQ(download(rb.weight_sum), std::vector<float>(W * H, 0.0f));

  const std::vector<Disk> drawn = {{centred(1.001f), tilted, 0.1f}, {centred(3.999f), tilted, 0.4f},
                                   box_case(-1.6f, 0.1f), box_case(1.6f, 0.1f), box_case(0.1f, 1.2f)};
  for (const Disk& d : drawn) {
    render({d}, 1.0f, 4.0f);
    const int2 p = pixel_of(camera, d.p);
    const int2 inside = make_int2(std::min(std::max(p.x, 0), W - 1), std::min(std::max(p.y, 0), H - 1));
    EXPECT_NEAR(depth_at(inside), d.p.z, 0.1f) << d.p.x << ", " << d.p.y << ", " << d.p.z;
  }
}

// The tangent frame takes its seed from the strictly smallest component of the normal. With
// x and y tied the last branch gives a valid frame unless both are 0: a disk facing the camera
// exactly gets a zero seed and a NaN frame, which no depth test rejects and no minimum accepts.
TEST_F(SplattingTest, TiedComponentsTakeTheLastFrameBranch) {
  const float3 diagonal = make_float3(0.6f, 0.6f, -0.52915026f);
  render({{{0.1f, 0.1f, 2}, diagonal, 0.2f}});
  EXPECT_NEAR(depth_at(pixel_of(camera, {0.1f, 0.1f, 2})), 2.0f, 1e-5f);

  render({{{0.1f, 0.1f, 2}, {0, 0, -1}, 0.2f, make_uchar4(200, 200, 200, 255)}});
  EXPECT_EQ(download(rb.depth), std::vector<float>(W * H, empty_depth));
  const int2 p = pixel_of(camera, {0.1f, 0.1f, 2});
  EXPECT_TRUE(std::isnan(download(rb.weight_sum)[p.y * W + p.x]));
  const uchar4 c = download(rb.image)[p.y * W + p.x];
  EXPECT_TRUE(c.x == 0 && c.w == 0);
}

// At one pixel: two disks at the same depth and one less than its radius behind are all in the
// sums; one more than its radius behind is not.
TEST_F(SplattingTest, AttributesSumEveryDiskWithinItsRadiusBehindTheNearestDepth) {
  const float r = 0.2f;
  const float3 at = make_float3(0.1f, 0.1f, 2.0f);
  render({{at, tilted, r, make_uchar4(240, 0, 0, 255)},
          {at, tilted, r, make_uchar4(0, 0, 240, 255)},
          {{0.1f * 2.1f / 2, 0.1f * 2.1f / 2, 2.1f}, tilted, r, make_uchar4(0, 240, 0, 255)},
          {{0.1f * 2.5f / 2, 0.1f * 2.5f / 2, 2.5f}, tilted, r, make_uchar4(255, 255, 255, 255)}});
  const int2 p = pixel_of(camera, at);
  const int i = p.y * W + p.x;
  EXPECT_NEAR(download(rb.depth)[i], 2.0f, 1e-6f);
  EXPECT_NEAR(download(rb.weight_sum)[i], 3 * 4.1777137f, 1e-4f);
  const uchar4 c = download(rb.image)[i];
  EXPECT_NEAR(c.x, 80, 1);
  EXPECT_NEAR(c.y, 80, 1);
  EXPECT_NEAR(c.z, 80, 1);
  EXPECT_GE(c.w, 254);
}

// Past 2^24 points a block count computed in float loses the tail; past 8388480 points (65535
// blocks of 128) the passes run in a second batch. Every point but the first of the second batch
// and the very last is culled (zero normal); those two must both be drawn.
TEST_F(SplattingTest, PointsBeyondTheFirstBatchAndBeyondFloatPrecisionAreDrawn) {
  const unsigned int n = (1u << 24) + 1, first_of_second_batch = 65535u * 128u;
  Points p{allocate_pitched<float, 2>(n, 3, 1), allocate_pitched<float, 2>(n, 3, 1),
           allocate_pitched<uchar4, 1>(n, 1, 1), allocate_pitched<float, 1>(n, 1, 1)};
  owned(p.positions);
  owned(p.normals);
  owned(p.colors);
  owned(p.radii);
  ketra::set(p.positions, 0.0f);
  ketra::set(p.normals, 0.0f);
  ketra::set(p.radii, 0.1f);
  ketra::set(p.colors, make_uchar4(0, 0, 0, 0));
  const float3 a = make_float3(-0.15f, 0.05f, 2.0f), b = make_float3(0.15f, 0.05f, 2.0f);
  auto place = [&](unsigned int i, float3 q, uchar4 c) {
    const ketra::Range at(static_cast<int>(i), static_cast<int>(i));
    ketra::Array<float, 4> position = ketra::block(ketra::internal::as4D(p.positions), at);
    ketra::Array<float, 4> normal = ketra::block(ketra::internal::as4D(p.normals), at);
    ketra::Array<uchar4, 4> colour = ketra::block(ketra::internal::as4D(p.colors), at);
    upload(position, {q.x, q.y, q.z});
    upload(normal, {tilted.x, tilted.y, tilted.z});
    upload(colour, {c});
  };
  place(first_of_second_batch, a, make_uchar4(255, 0, 0, 255));
  place(n - 1, b, make_uchar4(0, 0, 255, 255));
  render_points(rb, p, camera, 0.02f, 0.0f, empty_depth, 1.0f);
  const std::vector<uchar4> image = download(rb.image);
  const int2 pa = pixel_of(camera, a), pb = pixel_of(camera, b);
  EXPECT_GE(image[pa.y * W + pa.x].x, 254);  // 255 * w / w may truncate to 254
  EXPECT_GE(image[pb.y * W + pb.x].z, 254);
}
