#include "tools/depth/plane_propagation.h"

#include <algorithm>
#include <cmath>

#include "tools/depth/slanted_window.h"

namespace depth_tool {
long propagate_planes(CMatrix<float>& depth, const Camera& reference, const std::vector<const Camera*>& neighbours,
                      const PropagationSettings& s) {
  const ViewGeometry r = view_geometry(reference);
  const std::vector<WindowPair> pairs = window_pairs(r, neighbours);
  const Grey ref = grey_of(reference.image);
  const int W = reference.width, H = reference.height, R = s.radius, d = s.reach;
  const double w_low = 1.0 / s.far, w_high = 1.0 / s.near;
  const int offsets[8][2] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}, {-d, 0}, {d, 0}, {0, -d}, {0, d}};
  const std::size_t n = static_cast<std::size_t>(W) * H;
  std::vector<Plane> planes(n);
  // Pixels whose plane, or a plane offered to them, may have changed since the last pass: all at
  // first, then those within a window of a depth that moved by more than a quarter label.
  std::vector<unsigned char> moved(n, 0), stirred(n, 1);
  const double quarter = 0.25 * s.label_step;
  long replaced = 0;
  for (int pass = 0; pass < s.passes; ++pass) {
    const CMatrix<float> input = depth;
    if (pass > 0) {
#pragma omp parallel for schedule(static)
      for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
          bool near = false;
          for (int v = std::max(0, y - R); v <= std::min(H - 1, y + R) && !near; ++v)
            for (int u = std::max(0, x - R); u <= std::min(W - 1, x + R) && !near; ++u)
              near = moved[static_cast<std::size_t>(v) * W + u];
          stirred[static_cast<std::size_t>(y) * W + x] = near;
        }
      std::fill(moved.begin(), moved.end(), 0);
    }
#pragma omp parallel for schedule(dynamic, 4)
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        Plane& q = planes[static_cast<std::size_t>(y) * W + x];
        q.valid = input(x, y) > 0 && fit_plane(input, x, y, R, 2.0 * s.label_step, q.a, q.b, q.c);
      }
    long replaced_now = 0;
#pragma omp parallel for schedule(dynamic, 4) reduction(+ : replaced_now)
    for (int y = 0; y < H; ++y) {
      ReferenceWindow window;
      for (int x = 0; x < W; ++x) {
        const std::size_t i = static_cast<std::size_t>(y) * W + x;
        const Plane& own = planes[i];
        if (!own.valid) continue;
        bool offered_new = stirred[i];
        for (const auto& o : offsets) {
          const int u = x + o[0], v = y + o[1];
          offered_new |= u >= 0 && v >= 0 && u < W && v < H && stirred[static_cast<std::size_t>(v) * W + u];
        }
        if (!offered_new || !reference_window(ref, r, x, y, R, window)) continue;
        double best_cost;
        const double own_w = 1.0 / input(x, y);
        if (!mean_cost(pairs, window, own_w, own.b, own.c, best_cost)) continue;
        double best_w = 0;
        for (const auto& o : offsets) {
          const int u = x + o[0], v = y + o[1];
          if (u < 0 || v < 0 || u >= W || v >= H) continue;
          const Plane& q = planes[static_cast<std::size_t>(v) * W + u];
          if (!q.valid) continue;
          // The other pixel's plane, moved to this pixel.
          const double a = q.a - q.b * o[0] - q.c * o[1];
          double cost;
          if (!(a >= w_low && a <= w_high) || !mean_cost(pairs, window, a, q.b, q.c, cost)) continue;
          if (cost < best_cost) best_cost = cost, best_w = a;
        }
        if (best_w > 0) {
          depth(x, y) = static_cast<float>(1.0 / best_w);
          if (std::fabs(best_w - own_w) > quarter) moved[i] = 1, ++replaced_now;
        }
      }
    }
    replaced += replaced_now;
    if (replaced_now == 0) break;
  }
  return replaced;
}

}  // namespace depth_tool
