// The photo-consistency score: its border, the depth and alpha restrictions of its window, the
// weights of the window's rim, and what the unnormalised sums make of flat windows.

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "src/refine/ncc.h"
#include "tests/render/render_test_support.h"

namespace {

constexpr int W = 12, H = 10;
constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

// A textured reference, a warp of it that differs a little, and depth 1 everywhere.
class NccTest : public RenderTest {
 protected:
  std::vector<uchar4> reference, warped;
  std::vector<float> depth = std::vector<float>(W * H, 1.0f);

  void SetUp() override {
    RenderTest::SetUp();
    for (int p = 0; p < W * H; ++p) {
      const int v = (p * 37 + (p / W) * 11) % 256;
      reference.push_back(make_uchar4(v, 255 - v, (3 * v) % 256, 255));
      warped.push_back(make_uchar4((v + 9 * (p % 3)) % 256, 255 - v, (3 * v) % 256, 255));
    }
  }

  std::vector<float> run(int radius, float tolerance = 0.5f) {
    ketra::Array<float, 2> result = array<float>(W, H);
    ketra::Array<uchar4, 2> a = array<uchar4>(W, H), b = array<uchar4>(W, H);
    ketra::Array<float, 2> d = array<float>(W, H);
    upload(a, reference);
    upload(b, warped);
    upload(d, depth);
    ncc(result, a, b, d, tolerance, radius);
    return download(result);
  }
  float at(int x, int y, int radius = 3) { return run(radius)[y * W + x]; }
};

// The pixels of the (2R + 1)^2 window around (x, y), rows first.
std::vector<int> window(int x, int y, int R) {
  std::vector<int> w;
  for (int v = y - R; v <= y + R; ++v)
    for (int u = x - R; u <= x + R; ++u) w.push_back(v * W + u);
  return w;
}

}  // namespace

// Every pixel within R of an edge has no score, on all four sides and for every window size,
// though its depth is valid; inside, a warp equal to the reference scores 1. A centre without a
// valid depth has no score either.
TEST_F(NccTest, BorderAndInvalidCentresHaveNoScore) {
  warped = reference;
  for (int R = 1; R <= 3; ++R) {
    const std::vector<float> s = run(R);
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        const bool inside = x >= R && y >= R && x < W - R && y < H - R;
        if (inside)
          EXPECT_NEAR(s[y * W + x], 1.0f, 1e-6f) << R << ": " << x << ", " << y;
        else
          EXPECT_TRUE(std::isnan(s[y * W + x])) << R << ": " << x << ", " << y;
      }
  }
  for (float bad : {0.0f, -1.0f, nan_value, INFINITY, FLT_MAX}) {
    depth[5 * W + 5] = bad;
    EXPECT_TRUE(std::isnan(at(5, 5))) << bad;
  }
}

// Window pixels take part only on the centre's surface (strictly nearer than the tolerance) and
// where the warp reached them; more than half of the window must. For R = 3, 25 of 49 pixels
// score and 24 do not, whichever test drops the 25th.
TEST_F(NccTest, WindowIsRestrictedByDepthAndAlpha) {
  const int x = 6, y = 5;
  const std::vector<int> w = window(x, y, 3);
  for (std::size_t i = 25; i < w.size(); ++i) depth[w[i]] = 2.0f;  // first 25, centre included, remain
  EXPECT_FALSE(std::isnan(at(x, y)));

  depth[w[3]] = 1.5f;  // exactly the tolerance away
  EXPECT_TRUE(std::isnan(at(x, y)));
  depth[w[3]] = 1.4999f;
  EXPECT_FALSE(std::isnan(at(x, y)));

  warped[w[3]].w = 127;  // alpha below 0.5
  EXPECT_TRUE(std::isnan(at(x, y)));
  warped[w[3]].w = 128;
  EXPECT_FALSE(std::isnan(at(x, y)));

  // The centre is one window pixel like the others: failing the alpha test it does not count,
  // and the window still scores when 25 others do.
  warped[y * W + x].w = 0;
  EXPECT_TRUE(std::isnan(at(x, y)));
  depth[w[25]] = 1.0f;
  EXPECT_FALSE(std::isnan(at(x, y)));
}

// For R = 2 the pixels at distance 2 lie on the rim, r = 1: they count towards the 13 of 25 that
// must take part, but their colours weigh nothing.
TEST_F(NccTest, RimPixelsCountButWeighNothing) {
  const int x = 6, y = 5;
  const std::vector<int> w = window(x, y, 2);
  const int rim = y * W + x + 2;
  for (std::size_t i = 13; i < w.size(); ++i) depth[w[i]] = 2.0f;
  depth[rim] = 1.0f;
  depth[w[0]] = 2.0f;  // 12 pixels up to the centre and the rim take part
  const float score = at(x, y, 2);
  ASSERT_FALSE(std::isnan(score));
  warped[rim] = make_uchar4(0, 255, 0, 255);
  reference[rim] = make_uchar4(255, 0, 90, 255);
  EXPECT_EQ(at(x, y, 2), score);
  depth[rim] = 2.0f;
  EXPECT_TRUE(std::isnan(at(x, y, 2)));
}

// The window sums are subtracted as they stand, not as means. Flat windows therefore do not
// vanish: each sample becomes (1 - S) times its colour, S the sum of the weights, and the score is
// the cosine of the two colours (alpha included), where centred windows would give no score.
TEST_F(NccTest, FlatWindowsScoreTheCosineOfTheirColours) {
  const uchar4 c1 = make_uchar4(51, 102, 153, 255), c2 = make_uchar4(153, 102, 51, 255);
  reference.assign(W * H, c1);
  warped.assign(W * H, c2);
  const float a[4] = {0.2f, 0.4f, 0.6f, 1.0f}, b[4] = {0.6f, 0.4f, 0.2f, 1.0f};
  const float cosine = (a[0] * b[0] + a[1] * b[1] + a[2] * b[2] + a[3] * b[3]) /
                       (a[0] * a[0] + a[1] * a[1] + a[2] * a[2] + a[3] * a[3]);
  EXPECT_NEAR(at(6, 5), cosine, 1e-5f);
}

TEST_F(NccTest, RefusesOtherWindowsAndMismatchedArrays) {
  for (int R : {0, 4}) EXPECT_EQ(message_of([&] { run(R); }), "ncc: window size not supported");
  ketra::Array<float, 2> result = array<float>(W, H), depth_map = array<float>(W, H + 1);
  ketra::Array<uchar4, 2> image = array<uchar4>(W, H);
  EXPECT_EQ(message_of([&] { ncc(result, image, image, depth_map, 1.0f, 3); }),
            "ncc: arrays of different sizes: result (12, 10), reference (12, 10), warped (12, 10), depth (12, 11)");
}
