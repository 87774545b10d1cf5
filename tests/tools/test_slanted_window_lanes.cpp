// The slanted window cost, which projects and samples the pixels of a window row side by side,
// against the plain geometry it stands for: each window pixel's ray cut by the inverse-depth
// plane, carried into the neighbour, read bilinearly and correlated with the reference window.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

#include "tools/depth/slanted_window.h"

using namespace depth_tool;

namespace {

// A neighbour turned by 8 degrees about the vertical axis and moved sideways, 64 x 48 pixels of
// smooth random grey.
WindowPair make_pair() {
  WindowPair p;
  const double t = 8.0 * M_PI / 180.0;
  const double M[9] = {std::cos(t), 0, std::sin(t), 0, 1, 0, -std::sin(t), 0, std::cos(t)};
  std::copy(M, M + 9, p.M);
  p.m[0] = -0.25, p.m[1] = 0.02, p.m[2] = 0.03;
  p.fx = 90, p.fy = 92, p.cx = 31.7, p.cy = 23.2, p.W = 64, p.H = 48;
  p.grey.W = p.W, p.grey.H = p.H;
  uint32_t seed = 5;
  for (int i = 0; i < p.W * p.H; ++i) {
    seed = seed * 1664525u + 1013904223u;
    p.grey.v.push_back(100.0f + 40.0f * std::sin(0.4f * (i % p.W)) + static_cast<float>(seed >> 26));
  }
  return p;
}

double bilinear(const Grey& g, double x, double y) {
  const int x0 = std::min(static_cast<int>(x), g.W - 2), y0 = std::min(static_cast<int>(y), g.H - 2);
  const double fx = x - x0, fy = y - y0;
  return (1 - fy) * ((1 - fx) * g.at(x0, y0) + fx * g.at(x0 + 1, y0)) +
         fy * ((1 - fx) * g.at(x0, y0 + 1) + fx * g.at(x0 + 1, y0 + 1));
}

// The cost by the plain geometry, or false where a window pixel leaves the neighbour's image.
bool expected_cost(const WindowPair& p, const ReferenceWindow& win, double a, double b, double c, double& cost) {
  const int R = win.radius, n = (2 * R + 1) * (2 * R + 1);
  std::vector<double> g;
  for (int dy = -R; dy <= R; ++dy)
    for (int dx = -R; dx <= R; ++dx) {
      const double w = a + b * dx + c * dy;
      const double X[3] = {(win.rx0 - dx / win.fx) / w, (win.ry0 - dy / win.fy) / w, 1 / w};
      double Q[3];
      for (int i = 0; i < 3; ++i) Q[i] = p.M[3 * i] * X[0] + p.M[3 * i + 1] * X[1] + p.M[3 * i + 2] * X[2] + p.m[i];
      const double u = p.cx - p.fx * Q[0] / Q[2], v = p.cy - p.fy * Q[1] / Q[2];
      if (!(Q[2] > 0 && u >= 0 && v >= 0 && u <= p.W - 1 && v <= p.H - 1)) return false;
      g.push_back(bilinear(p.grey, u, v));
    }
  double mean = 0, var = 0, cross = 0;
  for (double v : g) mean += v / n;
  for (int k = 0; k < n; ++k) var += (g[k] - mean) * (g[k] - mean), cross += win.centred[k] * g[k];
  cost = 1 - cross / std::sqrt(var * win.norm);
  return true;
}

}  // namespace

// Radii 3, 2 and 1 (49, 25 and 9 pixels: groups of lanes that span one or two row ends, and a
// last group with one pixel), planes of many
// slants and depths: the same verdict everywhere, and the same cost to rounding where the
// window is seen whole.
TEST(SlantedWindowLanes, CostFollowsThePlainGeometry) {
  const WindowPair p = make_pair();
  uint32_t seed = 9;
  const auto uniform = [&seed](double lo, double hi) {
    seed = seed * 1664525u + 1013904223u;
    return lo + (hi - lo) * (seed >> 8) / 16777216.0;
  };
  int seen = 0, unseen = 0;
  for (int R : {3, 2, 1}) {
    ReferenceWindow win;
    win.radius = R, win.fx = 90, win.fy = 92;
    for (int trial = 0; trial < 400; ++trial) {
      win.rx0 = uniform(-0.3, 0.3), win.ry0 = uniform(-0.25, 0.25);
      // A reference window less its mean, as reference_window makes it.
      const int n = (2 * R + 1) * (2 * R + 1);
      std::vector<double> values;
      double mean = 0;
      for (int k = 0; k < n; ++k) values.push_back(uniform(-20, 20)), mean += values.back() / n;
      win.centred.clear(), win.norm = 0;
      for (double v : values) {
        win.centred.push_back(static_cast<float>(v - mean));
        win.norm += static_cast<double>(win.centred.back()) * win.centred.back();
      }
      // Inverse depths around 1 / 2.5 with slants up to a few labels per pixel; some windows
      // reach behind the camera or past the image's edge.
      const double a = uniform(0.05, 0.6), b = uniform(-0.02, 0.02), c = uniform(-0.02, 0.02);
      double got = -7, want = -7;
      const bool has = window_cost(p, win, a, b, c, got);
      ASSERT_EQ(has, expected_cost(p, win, a, b, c, want)) << R << " " << trial;
      if (has) {
        ++seen;
        ASSERT_NEAR(got, want, 1e-5) << R << " " << trial;
      } else {
        ++unseen;
        ASSERT_EQ(got, -7);
      }
    }
  }
  EXPECT_GT(seen, 200);
  EXPECT_GT(unseen, 50);
}
