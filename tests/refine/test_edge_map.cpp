// Edge maps and the semi-global matching penalties made from them, on step edges.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "src/refine/edge_map.h"
#include "tests/render/render_test_support.h"

namespace {

constexpr int W = 6, H = 5;

// Colour a left of column 3 and above row 2, colour b elsewhere, so that both steps meet; the
// alpha channel varies and must not matter.
std::vector<uchar4> steps(uchar4 a, uchar4 b) {
  std::vector<uchar4> image;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      uchar4 c = x < 3 && y < 2 ? a : b;
      c.w = static_cast<unsigned char>(40 * x + 7 * y);
      image.push_back(c);
    }
  return image;
}

class EdgeMapTest : public RenderTest {
 protected:
  ketra::Array<float, 2> edges;
  void SetUp() override {
    RenderTest::SetUp();
    edges = array<float>(W, H);
  }
  std::vector<float> edge_map(std::vector<uchar4> const& image) {
    ketra::Array<uchar4, 2> im = array<uchar4>(W, H);
    upload(im, image);
    compute_edge_map(edges, im);
    return download(edges);
  }
};

}  // namespace

// Each pixel holds the colour step to its right neighbour plus that to the one below: the pixel
// at the corner of the region has both, the last column and row add no term across the border.
TEST_F(EdgeMapTest, StepEdgesGiveTheirRgbDistance) {
  const std::vector<float> e = edge_map(steps(make_uchar4(0, 0, 0, 0), make_uchar4(255, 0, 0, 255)));
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const bool right = x == 2 && y < 2, below = y == 1 && x < 3;
      EXPECT_FLOAT_EQ(e[y * W + x], (right ? 1.0f : 0.0f) + (below ? 1.0f : 0.0f)) << x << ", " << y;
    }
  const std::vector<float> grey = edge_map(steps(make_uchar4(0, 0, 0, 0), make_uchar4(51, 102, 153, 0)));
  EXPECT_NEAR(grey[2], std::sqrt(0.04f + 0.16f + 0.36f), 1e-6f);
}

// The penalty falls from P2_max at flat pixels towards P2_min at strong edges, never below it.
// With exponent 0 every pixel, flat ones included, gets max(P2_min, P2_max * exp(-decay)).
TEST_F(EdgeMapTest, PenaltiesFallAtEdgesToTheirFloor) {
  const std::vector<uchar4> image = steps(make_uchar4(0, 0, 0, 0), make_uchar4(255, 0, 0, 255));
  edge_map(image);
  compute_P2_costs(edges, 0.5f, 1.0f, 1.0f, 4.0f);
  std::vector<float> p = download(edges);
  EXPECT_FLOAT_EQ(p[0], 4.0f);
  EXPECT_FLOAT_EQ(p[2], 4.0f * std::exp(-1.0f));
  EXPECT_FLOAT_EQ(p[1 * W + 2], 4.0f * std::exp(-2.0f));

  edge_map(image);
  compute_P2_costs(edges, 2.0f, 1.0f, 1.0f, 4.0f);
  p = download(edges);
  EXPECT_FLOAT_EQ(p[0], 4.0f);
  EXPECT_FLOAT_EQ(p[2], 2.0f);  // 4 * exp(-1) lies below the floor
  EXPECT_FLOAT_EQ(p[1 * W + 2], 2.0f);

  edge_map(image);
  compute_P2_costs(edges, 0.5f, 1.0f, 0.0f, 4.0f);
  for (float v : download(edges)) EXPECT_FLOAT_EQ(v, 4.0f * std::exp(-1.0f));
}

TEST_F(EdgeMapTest, RefusesAnImageOfAnotherSize) {
  ketra::Array<uchar4, 2> image = array<uchar4>(W + 1, H);
  EXPECT_EQ(message_of([&] { compute_edge_map(edges, image); }),
            "compute_edge_map: edges (6, 5) and image (7, 5) differ in size");
}
