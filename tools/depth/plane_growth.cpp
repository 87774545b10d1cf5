#include "tools/depth/plane_growth.h"

#include <algorithm>
#include <cmath>

#include "tools/depth/matching_frame.h"
#include "tools/depth/slanted_window.h"

namespace depth_tool {
namespace {

// A pixel without a depth whose surroundings and whose own 3 x 3 pixels hold texture: a window
// that straddles an edge to a flat region still matches by the textured side's pixels, so the
// flat side's pixels next to the edge need the second test.
bool empty_but_matchable(const CMatrix<float>& depth, const CMatrix<float>& texture, const CMatrix<float>& fine,
                         float min_texture, int x, int y) {
  return !(depth(x, y) > 0) && texture(x, y) >= min_texture && fine(x, y) >= min_texture;
}

}  // namespace

long grow_on_slanted_windows(CMatrix<float>& depth, const Camera& reference,
                             const std::vector<const Camera*>& neighbours, const CMatrix<float>& texture,
                             const GrowthSettings& s) {
  const MatchingFrame frame = matching_frame(reference, neighbours, s.near, s.far);
  const ViewGeometry& r = frame.geometry;
  const std::vector<WindowPair>& pairs = frame.pairs;
  const Grey& ref = frame.grey;
  const CMatrix<float>& fine = frame.fine_texture;
  const int W = reference.width, H = reference.height, R = s.radius;
  const double w_low = frame.w_low, w_high = frame.w_high;
  long grown = 0;
  std::vector<Plane> planes(static_cast<std::size_t>(W) * H);
  // The depths new since a pixel was last offered planes: all at first, then those grown last pass.
  std::vector<unsigned char> fresh(planes.size());
  for (std::size_t p = 0; p < fresh.size(); ++p) fresh[p] = depth.data[p] > 0;
  for (int pass = 0; pass < s.passes; ++pass) {
    const CMatrix<float> input = depth;
    const std::vector<unsigned char> offered = fresh;
    std::fill(fresh.begin(), fresh.end(), 0);
    // The planes of the depths next to an empty pixel that could take one.
#pragma omp parallel for schedule(dynamic, 4)
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        Plane& q = planes[static_cast<std::size_t>(y) * W + x];
        q.valid = false;
        if (!(input(x, y) > 0)) continue;
        bool frontier = false;
        for (int dy = -1; dy <= 1 && !frontier; ++dy)
          for (int dx = -1; dx <= 1 && !frontier; ++dx) {
            const int u = x + dx, v = y + dy;
            frontier = u >= 0 && v >= 0 && u < W && v < H && empty_but_matchable(input, texture, fine, s.min_texture, u, v);
          }
        if (frontier) q.valid = fit_plane(input, x, y, R, 2.0 * s.label_step, q.a, q.b, q.c);
      }
    long grown_now = 0;
#pragma omp parallel for schedule(dynamic, 4) reduction(+ : grown_now)
    for (int y = 0; y < H; ++y) {
      ReferenceWindow window;
      for (int x = 0; x < W; ++x) {
        if (!empty_but_matchable(input, texture, fine, s.min_texture, x, y)) continue;
        // A pixel that took none of the planes offered before is offered them again only beside new depths.
        bool beside_fresh = false;
        for (int dy = -1; dy <= 1 && !beside_fresh; ++dy)
          for (int dx = -1; dx <= 1 && !beside_fresh; ++dx) {
            const int u = x + dx, v = y + dy;
            beside_fresh = u >= 0 && v >= 0 && u < W && v < H && offered[static_cast<std::size_t>(v) * W + u];
          }
        if (!beside_fresh) continue;
        bool has_window = false, tried = false;
        double best_cost = 0, best_w = 0;
        for (int dy = -1; dy <= 1; ++dy)
          for (int dx = -1; dx <= 1; ++dx) {
            const int u = x + dx, v = y + dy;
            if ((dx == 0 && dy == 0) || u < 0 || v < 0 || u >= W || v >= H) continue;
            const Plane& q = planes[static_cast<std::size_t>(v) * W + u];
            if (!q.valid) continue;
            if (!tried) {
              tried = true;
              has_window = reference_window(ref, r, x, y, R, window);
            }
            if (!has_window) continue;
            // The neighbour's plane, moved to this pixel.
            const double a = q.a - q.b * dx - q.c * dy;
            if (!(a >= w_low && a <= w_high)) continue;
            double cost;
            if (!mean_cost(pairs, window, a, q.b, q.c, cost)) continue;
            if (best_w == 0 || cost < best_cost) best_cost = cost, best_w = a;
          }
        if (best_w > 0 && 1.0 - best_cost >= s.min_score) {
          depth(x, y) = static_cast<float>(1.0 / best_w);
          fresh[static_cast<std::size_t>(y) * W + x] = 1;
          ++grown_now;
        }
      }
    }
    grown += grown_now;
    if (grown_now == 0) break;
  }
  return grown;
}

}  // namespace depth_tool
