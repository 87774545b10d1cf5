// The photo-consistency score: its border, the depth and alpha restrictions of its window, the
// weights of the window's rim, and what the unnormalised sums make of flat windows.

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <vector>

#include "src/refine/ncc.h"
#include "tests/render/render_test_support.h"

namespace {

constexpr int W = 12, H = 10, cx = 6, cy = 5;

// A textured reference, a warp that differs a little, depth 1 everywhere.
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
  std::vector<float> run(int R, unsigned int depth_height = H) {
    ketra::Array<float, 2> result = array<float>(W, H), d = array<float>(W, depth_height);
    ketra::Array<uchar4, 2> a = array<uchar4>(W, H), b = array<uchar4>(W, H);
    std::vector<float> dv = depth;
    dv.resize(W * depth_height, 1.0f);
    upload(a, reference), upload(b, warped), upload(d, dv);
    ncc(result, a, b, d, 0.5f, R);
    return download(result);
  }
  float at_centre(int R = 3) { return run(R)[cy * W + cx]; }
  // Keeps the first `count` pixels of the window around the centre, rows first, on its surface.
  void keep_first(int count, int R) {
    for (int i = count; i < (2 * R + 1) * (2 * R + 1); ++i)
      depth[(cy - R + i / (2 * R + 1)) * W + cx - R + i % (2 * R + 1)] = 2.0f;
  }
};

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
        if (x >= R && y >= R && x < W - R && y < H - R)
          EXPECT_NEAR(s[y * W + x], 1.0f, 1e-6f) << R << ": " << x << ", " << y;
        else
          EXPECT_TRUE(std::isnan(s[y * W + x])) << R << ": " << x << ", " << y;
      }
  }
  for (float bad : {0.0f, -1.0f, NAN, INFINITY, FLT_MAX}) {
    depth[cy * W + cx] = bad;
    EXPECT_TRUE(std::isnan(at_centre())) << bad;
  }
  for (int R : {0, 4}) EXPECT_EQ(message_of([&] { run(R); }), "ncc: window size not supported");
  EXPECT_EQ(message_of([&] { run(3, H + 1); }),
            "ncc: arrays of different sizes: result (12, 10), reference (12, 10), warped (12, 10), depth (12, 11)");
}

// Window pixels take part only on the centre's surface (strictly nearer than the tolerance) and
// where the warp reached them (alpha 128 of 255 does, 127 does not); more than half of the window
// must. For R = 3 the first 25 of 49, the centre last among them, score and 24 do not. The centre
// is a window pixel like the others. For R = 2 the pixel two to the right lies on the rim, r = 1:
// it counts towards the 13 of 25 that must take part, but its colours weigh nothing.
TEST_F(NccTest, WindowIsRestrictedByDepthAndAlpha) {
  keep_first(25, 3);
  const int other = (cy - 3) * W + cx, centre = cy * W + cx, rim = centre + 2;
  EXPECT_FALSE(std::isnan(at_centre()));
  depth[other] = 1.5f;  // exactly the tolerance away
  EXPECT_TRUE(std::isnan(at_centre()));
  depth[other] = 1.4999f;
  warped[other].w = 127;
  EXPECT_TRUE(std::isnan(at_centre()));
  warped[other].w = 128;
  EXPECT_FALSE(std::isnan(at_centre()));
  warped[centre].w = 0;
  EXPECT_TRUE(std::isnan(at_centre()));
  depth[centre + 1] = 1.0f;  // the 26th
  EXPECT_FALSE(std::isnan(at_centre()));

  depth.assign(W * H, 1.0f);
  warped[centre].w = 255;
  keep_first(13, 2);
  depth[rim] = 1.0f;
  depth[(cy - 2) * W + cx - 2] = 2.0f;
  const float score = at_centre(2);
  ASSERT_FALSE(std::isnan(score));
  warped[rim] = make_uchar4(0, 255, 0, 255);
  reference[rim] = make_uchar4(255, 0, 90, 255);
  EXPECT_EQ(at_centre(2), score);
  depth[rim] = 2.0f;
  EXPECT_TRUE(std::isnan(at_centre(2)));
}

// The window sums are subtracted as they stand, not as means, so flat windows do not vanish:
// each sample becomes (1 - S) times its colour, S the sum of the weights, and the score is the
// cosine of the two colours, alpha included. Centred windows would have no score.
TEST_F(NccTest, FlatWindowsScoreTheCosineOfTheirColours) {
  reference.assign(W * H, make_uchar4(51, 102, 153, 255));
  warped.assign(W * H, make_uchar4(153, 102, 51, 255));
  EXPECT_NEAR(at_centre(), (0.12f + 0.16f + 0.12f + 1.0f) / (0.04f + 0.16f + 0.36f + 1.0f), 1e-5f);
}
