// Edge maps and the matching penalties made from them, on a step edge.

#include <gtest/gtest.h>

#include <cmath>

#include "src/refine/edge_map.h"
#include "tests/render/render_test_support.h"

// Red (255, 0, 0) left of column 3 in rows 0 and 1, black elsewhere, alpha varying. A pixel holds
// the step to its right neighbour plus that to the one below; the region's corner has both, the
// last column and row nothing across the border. The penalty falls from P2_max at flat pixels
// towards its floor at edges; with exponent 0 every pixel gets max(P2_min, P2_max * exp(-decay)).
TEST_F(RenderTest, EdgeMapAndPenaltiesOfAStepEdge) {
  constexpr int W = 6, H = 5;
  std::vector<uchar4> image;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) image.push_back(make_uchar4(x < 3 && y < 2 ? 255 : 0, 0, 0, 40 * x + 7 * y));
  ketra::Array<uchar4, 2> im = array<uchar4>(W, H);
  ketra::Array<float, 2> edges = array<float>(W, H);
  upload(im, image);
  auto penalties = [&](float P2_min, float exponent) {
    compute_edge_map(edges, im);
    compute_P2_costs(edges, P2_min, 1.0f, exponent, 4.0f);
    return download(edges);
  };
  compute_edge_map(edges, im);
  const std::vector<float> e = download(edges), p = penalties(0.5f, 1.0f), floor = penalties(2.0f, 1.0f);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const int i = y * W + x;
      const float steps = (x == 2 && y < 2 ? 1.0f : 0.0f) + (y == 1 && x < 3 ? 1.0f : 0.0f);
      EXPECT_FLOAT_EQ(e[i], steps) << x << ", " << y;
      EXPECT_FLOAT_EQ(p[i], 4.0f * std::exp(-steps)) << x << ", " << y;
      EXPECT_FLOAT_EQ(floor[i], steps > 0 ? 2.0f : 4.0f) << x << ", " << y;
    }
  for (float v : penalties(0.5f, 0.0f)) EXPECT_FLOAT_EQ(v, 4.0f * std::exp(-1.0f));

  image[3 * W + 4] = make_uchar4(51, 102, 153, 0);  // steps in all three channels, right and down
  upload(im, image);
  compute_edge_map(edges, im);
  EXPECT_NEAR(download(edges)[3 * W + 4], 2.0f * std::sqrt(0.04f + 0.16f + 0.36f), 1e-6f);

  ketra::Array<uchar4, 2> wider = array<uchar4>(W + 1, H);
  EXPECT_EQ(message_of([&] { compute_edge_map(edges, wider); }),
            "compute_edge_map: edges (6, 5) and image (7, 5) differ in size");
}
