#include "tools/depth/dominant_planes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "tools/depth/fixed_draw.h"

namespace depth_tool {
namespace {

struct Sample {
  double x, y, w, b, c;  // the pixel, its inverse depth and its plane's slopes
};

// Least squares over the samples flagged in `in`; false when they do not fix a plane.
bool fit(const std::vector<Sample>& s, const std::vector<char>& in, ImagePlane& plane) {
  double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0, syy = 0, sw = 0, sxw = 0, syw = 0;
  for (std::size_t k = 0; k < s.size(); ++k) {
    if (!in[k]) continue;
    const double x = s[k].x, y = s[k].y, w = s[k].w;
    n += 1, sx += x, sy += y, sxx += x * x, sxy += x * y, syy += y * y, sw += w, sxw += x * w, syw += y * w;
  }
  // Centred normal equations for the slopes, then the offset.
  if (n < 3) return false;
  const double mx = sx / n, my = sy / n, mw = sw / n;
  const double cxx = sxx - n * mx * mx, cxy = sxy - n * mx * my, cyy = syy - n * my * my;
  const double cxw = sxw - n * mx * mw, cyw = syw - n * my * mw;
  const double det = cxx * cyy - cxy * cxy;
  if (!(det > 1e-9 * (cxx * cyy + 1e-30))) return false;
  plane.b = (cxw * cyy - cyw * cxy) / det;
  plane.c = (cyw * cxx - cxw * cxy) / det;
  plane.a = mw - plane.b * mx - plane.c * my;
  return true;
}

}  // namespace

std::vector<ImagePlane> dominant_planes(const std::vector<Plane>& planes, const std::vector<double>& cost, int W,
                                        int H, const DominantPlaneSettings& st) {
  std::vector<Sample> samples;
  for (int y = 0; y < H; y += st.step)
    for (int x = 0; x < W; x += st.step) {
      const std::size_t i = static_cast<std::size_t>(y) * W + x;
      const Plane& q = planes[i];
      if (q.valid && cost[i] <= st.max_cost) samples.push_back({double(x), double(y), q.a, q.b, q.c});
    }
  const std::size_t min_support = std::max<std::size_t>(3, static_cast<std::size_t>(st.min_share * samples.size()));
  std::vector<ImagePlane> found;
  std::vector<char> left(samples.size(), 1), in(samples.size());
  std::uint64_t drawn = 0;
  const auto next = [&drawn](std::size_t n) { return static_cast<std::size_t>(mixed(++drawn) % n); };
  const auto inliers = [&](const ImagePlane& p, std::vector<char>* mark) {
    std::size_t count = 0;
    for (std::size_t k = 0; k < samples.size(); ++k) {
      const Sample& q = samples[k];
      const bool is = left[k] && std::fabs(p.a + p.b * q.x + p.c * q.y - q.w) <= st.tolerance * q.w;
      count += is;
      if (mark) (*mark)[k] = is;
    }
    return count;
  };
  for (int found_count = 0; found_count < st.count; ++found_count) {
    std::vector<std::size_t> pool;
    for (std::size_t k = 0; k < samples.size(); ++k)
      if (left[k]) pool.push_back(k);
    if (pool.size() < min_support) break;
    ImagePlane best;
    std::size_t best_count = 0;
    for (int t = 0; t < st.trials; ++t) {
      const Sample& q = samples[pool[next(pool.size())]];
      const ImagePlane p{q.w - q.b * q.x - q.c * q.y, q.b, q.c};
      const std::size_t c = inliers(p, nullptr);
      if (c > best_count) best_count = c, best = p;
    }
    if (best_count < min_support) break;
    inliers(best, &in);
    ImagePlane refined;
    if (fit(samples, in, refined)) best = refined;
    inliers(best, &in);
    for (std::size_t k = 0; k < samples.size(); ++k)
      if (in[k]) left[k] = 0;
    found.push_back(best);
  }
  return found;
}

}  // namespace depth_tool
