#include "tools/depth/neighbour_views.h"

#include <algorithm>
#include <cmath>

namespace depth_tool {
namespace {

// The optical axis: the third row of the world-to-camera rotation, which Camera keeps by columns.
void axis(const Camera& c, double a[3]) {
  a[0] = c.R[2], a[1] = c.R[5], a[2] = c.R[8];
}

}  // namespace

std::vector<int> choose_neighbours(const std::vector<Camera>& cameras, int reference, int count, float depth,
                                   double max_axis_degrees) {
  const double max_axis_angle = max_axis_degrees * M_PI / 180.0, min_parallax = 1.0 * M_PI / 180.0;
  const Camera& r = cameras[reference];
  double ar[3];
  axis(r, ar);
  std::vector<std::pair<double, int>> candidates;  // (baseline, view)
  for (int j = 0; j < static_cast<int>(cameras.size()); ++j) {
    if (j == reference) continue;
    const Camera& o = cameras[j];
    double ao[3];
    axis(o, ao);
    const double cosine = ar[0] * ao[0] + ar[1] * ao[1] + ar[2] * ao[2];
    const double dx = o.center[0] - r.center[0], dy = o.center[1] - r.center[1], dz = o.center[2] - r.center[2];
    const double baseline = std::sqrt(dx * dx + dy * dy + dz * dz);
    if (cosine < std::cos(max_axis_angle) || 2.0 * std::atan(0.5 * baseline / depth) < min_parallax) continue;
    candidates.emplace_back(baseline, j);
  }
  std::stable_sort(candidates.begin(), candidates.end(),
                   [](const auto& a, const auto& b) { return a.first < b.first; });
  std::vector<int> chosen;
  for (const auto& c : candidates)
    if (static_cast<int>(chosen.size()) < count) chosen.push_back(c.second);
  return chosen;
}

}  // namespace depth_tool
