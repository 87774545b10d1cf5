#include "tools/depth/slanted_refinement.h"

#include <algorithm>
#include <cmath>

#include "tools/depth/slanted_window.h"

namespace depth_tool {

RefinementStatistics refine_on_slanted_windows(CMatrix<float>& depth, const Camera& reference,
                                               const std::vector<const Camera*>& neighbours,
                                               const RefinementSettings& s, CMatrix<float>* score) {
  const ViewGeometry r = view_geometry(reference);
  const std::vector<WindowPair> pairs = window_pairs(r, neighbours);
  const Grey ref = grey_of(reference.image);
  const int W = reference.width, H = reference.height;
  const CMatrix<float> input = depth;
  if (score) score->setSize(W, H);
  RefinementStatistics stats;
  long refined = 0, unmatched = 0;
#pragma omp parallel for schedule(dynamic, 4) reduction(+ : refined, unmatched)
  for (int y = 0; y < H; ++y) {
    ReferenceWindow window;
    std::vector<double> cost(static_cast<std::size_t>(s.steps)), pair_costs(static_cast<std::size_t>(s.steps));
    std::vector<int> seen(static_cast<std::size_t>(s.steps));
    for (int x = 0; x < W; ++x) {
      float& out = depth(x, y);
      if (!(input(x, y) > 0)) continue;
      double a, b, c;
      if (!fit_plane(input, x, y, s.radius, 2.0 * s.label_step, a, b, c) ||
          !reference_window(ref, r, x, y, s.radius, window)) {
        out = 0, ++unmatched;
        continue;
      }
      std::fill(cost.begin(), cost.end(), 0.0);
      std::fill(seen.begin(), seen.end(), 0);
      // A neighbour counts only when it sees the whole window at every depth tried.
      for (const WindowPair& p : pairs) {
        bool all = true;
        for (int h = 0; h < s.steps && all; ++h) {
          const double shift = s.steps > 1 ? s.range * s.label_step * (2.0 * h / (s.steps - 1) - 1.0) : 0.0;
          all = window_cost(p, window, a + shift, b, c, pair_costs[h]);
        }
        if (!all) continue;
        for (int h = 0; h < s.steps; ++h) cost[h] += pair_costs[h], ++seen[h];
      }
      if (seen[0] == 0) {
        out = 0, ++unmatched;
        continue;
      }
      int best = 0;
      for (int h = 1; h < s.steps; ++h)
        if (cost[h] < cost[best]) best = h;
      if (best == 0 || best == s.steps - 1) {
        out = 0, ++unmatched;
        continue;
      }
      // The vertex of the parabola through the best step and its two neighbours.
      const double lo = cost[best - 1], mid = cost[best], hi = cost[best + 1];
      const double curvature = lo - 2 * mid + hi;
      const double offset = curvature > 0 ? 0.5 * (lo - hi) / curvature : 0.0;
      const double step = 2.0 * s.range * s.label_step / (s.steps - 1);
      const double w = a + s.range * s.label_step * (2.0 * best / (s.steps - 1) - 1.0) + offset * step;
      out = static_cast<float>(1.0 / w);
      if (score) (*score)(x, y) = static_cast<float>(1.0 - mid / seen[0]);
      ++refined;
    }
  }
  stats.refined = refined, stats.unmatched = unmatched;
  return stats;
}

}  // namespace depth_tool
