#include "tools/depth/exposure_alignment.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <sstream>

#include "tools/depth/estimate_depthmap.h"
#include "tools/depth/local_texture.h"
#include "tools/depth/view_geometry.h"

namespace depth_tool {
namespace {

constexpr long kFewestPairs = 200;
constexpr double kClipped = 5.0;
constexpr float kCoarseMinTexture = 3.0f, kCoarseMaxAmbiguity = 0.8f;

double channel(uchar4 c, int k) { return k == 0 ? c.x : (k == 1 ? c.y : c.z); }

// other = gain * reference + offset for one channel, trimming pairs beyond 2.5 robust deviations.
void fit_channel(const std::vector<uchar4>& a, const std::vector<uchar4>& b, int k, double& gain, double& offset,
                 long& kept) {
  // Clipped colours (black or saturated in either view) follow no line.
  std::vector<double> x, y;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const double u = channel(a[i], k), v = channel(b[i], k);
    if (u > kClipped && u < 255 - kClipped && v > kClipped && v < 255 - kClipped) x.push_back(u), y.push_back(v);
  }
  std::vector<char> use(x.size(), 1);
  std::vector<double> residuals(x.size());
  gain = 1, offset = 0, kept = 0;
  for (int round = 0; round < 4; ++round) {
    double n = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
    for (std::size_t i = 0; i < x.size(); ++i)
      if (use[i]) n += 1, sx += x[i], sy += y[i], sxx += x[i] * x[i], syy += y[i] * y[i], sxy += x[i] * y[i];
    const double var_x = sxx - sx * sx / n, var_y = syy - sy * sy / n, cov = sxy - sx * sy / n;
    if (n < kFewestPairs || !(var_x > 0) || !(cov > 0)) return;
    // Both colours carry errors (noise, slightly wrong correspondences): the line of reduced major
    // axis, unlike regression of one on the other, is not flattened by them.
    gain = std::sqrt(var_y / var_x);
    offset = (sy - gain * sx) / n;
    for (std::size_t i = 0; i < x.size(); ++i) residuals[i] = std::fabs(y[i] - gain * x[i] - offset);
    std::vector<double> sorted = residuals;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<long>(sorted.size() / 2), sorted.end());
    const double limit = 2.5 * std::max(1.4826 * sorted[sorted.size() / 2], 1.0);
    kept = 0;
    for (std::size_t i = 0; i < x.size(); ++i) kept += use[i] = residuals[i] <= limit;
  }
}

// Half the size, each pixel the mean of a 2 x 2 block; intrinsics to match.
Camera half_size(const Camera& c) {
  Camera h = c;
  h.width = c.width / 2, h.height = c.height / 2;
  h.image.setSize(h.width, h.height);
  for (int y = 0; y < h.height; ++y)
    for (int x = 0; x < h.width; ++x) {
      unsigned s[4] = {};
      for (int dy = 0; dy < 2; ++dy)
        for (int dx = 0; dx < 2; ++dx) {
          const uchar4 p = c.image(2 * x + dx, 2 * y + dy);
          s[0] += p.x, s[1] += p.y, s[2] += p.z, s[3] += p.w;
        }
      h.image(x, y) = uchar4{static_cast<unsigned char>((s[0] + 2) / 4), static_cast<unsigned char>((s[1] + 2) / 4),
                             static_cast<unsigned char>((s[2] + 2) / 4), static_cast<unsigned char>((s[3] + 2) / 4)};
    }
  // Pixel centres at whole numbers: full-size position u is half-size position (u + 0.5) / 2 - 0.5.
  const double cx = c.width - 1 - c.K[6], cy = c.height - 1 - c.K[7];
  h.K[0] = c.K[0] / 2, h.K[4] = c.K[4] / 2;
  h.K[6] = static_cast<float>(h.width - 1 - ((cx + 0.5) / 2 - 0.5));
  h.K[7] = static_cast<float>(h.height - 1 - ((cy + 0.5) / 2 - 0.5));
  return h;
}

// The bilinear colour at array position (x, y), inside the image.
uchar4 sample(const CMatrix<uchar4>& image, double x, double y) {
  const int x0 = std::min(static_cast<int>(x), image.xSize - 2), y0 = std::min(static_cast<int>(y), image.ySize - 2);
  const double fx = x - x0, fy = y - y0;
  const uchar4 p[4] = {image(x0, y0), image(x0 + 1, y0), image(x0, y0 + 1), image(x0 + 1, y0 + 1)};
  double v[3];
  for (int k = 0; k < 3; ++k)
    v[k] = (1 - fy) * ((1 - fx) * channel(p[0], k) + fx * channel(p[1], k)) +
           fy * ((1 - fx) * channel(p[2], k) + fx * channel(p[3], k));
  return uchar4{static_cast<unsigned char>(std::lround(v[0])), static_cast<unsigned char>(std::lround(v[1])),
                static_cast<unsigned char>(std::lround(v[2])), 255};
}

}  // namespace

ColourMap fit_colour_map(const std::vector<uchar4>& reference, const std::vector<uchar4>& other) {
  ColourMap map;
  ColourMap fitted;
  for (int k = 0; k < 3; ++k) {
    long kept = 0;
    fit_channel(reference, other, k, fitted.gain[k], fitted.offset[k], kept);
    if (kept < kFewestPairs || !(fitted.gain[k] > 0.25 && fitted.gain[k] < 4)) return map;
    fitted.pairs = k == 0 ? kept : std::min(fitted.pairs, kept);
  }
  return fitted;
}

CMatrix<uchar4> to_reference_exposure(const CMatrix<uchar4>& other, const ColourMap& map) {
  CMatrix<uchar4> out(other.xSize, other.ySize);
  unsigned char table[3][256];
  for (int k = 0; k < 3; ++k)
    for (int v = 0; v < 256; ++v)
      table[k][v] = static_cast<unsigned char>(std::clamp(std::lround((v - map.offset[k]) / map.gain[k]), 0L, 255L));
  for (std::size_t i = 0; i < other.size(); ++i) {
    const uchar4 c = other.data[i];
    out.data[i] = uchar4{table[0][c.x], table[1][c.y], table[2][c.z], c.w};
  }
  return out;
}

std::vector<ColourMap> align_exposures(const Camera& reference, const std::vector<const Camera*>& neighbours,
                                       float near, float far, const DepthOptions& options) {
  const Camera half = half_size(reference);
  std::vector<Camera> others;
  std::vector<const Camera*> other_ptrs;
  others.reserve(neighbours.size());
  for (const Camera* n : neighbours) others.push_back(half_size(*n)), other_ptrs.push_back(&others.back());
  DepthOptions coarse = options;
  coarse.costs = Costs::ncc;
  coarse.labels = std::max(32, options.labels / 2);
  // Only pixels the coarse match is sure of lend their colours.
  coarse.min_texture = kCoarseMinTexture, coarse.max_ambiguity = kCoarseMaxAmbiguity;
  // The fast correlation prints its filter taps; they have no place in this tool's progress.
  std::ostringstream taps;
  std::streambuf* const out = std::cout.rdbuf(taps.rdbuf());
  DepthEstimate e;
  try {
    e = estimate_depthmap(half, other_ptrs, near, far, local_texture(half.image, 2), coarse);
  } catch (...) {
    std::cout.rdbuf(out);
    throw;
  }
  std::cout.rdbuf(out);

  const ViewGeometry from = view_geometry(half);
  std::vector<ColourMap> maps;
  for (const Camera& o : others) {
    const ViewGeometry to = view_geometry(o);
    std::vector<uchar4> a, b;
    for (int y = 0; y < half.height; ++y)
      for (int x = 0; x < half.width; ++x) {
        const float d = e.depth(x, y);
        double u, v, z;
        if (!(d > 0) || !project(to, back_project(from, x, y, d), u, v, z)) continue;
        if (u < 0 || v < 0 || u > o.width - 1 || v > o.height - 1) continue;
        a.push_back(half.image(x, y));
        b.push_back(sample(o.image, u, v));
      }
    maps.push_back(fit_colour_map(a, b));
  }
  return maps;
}

}  // namespace depth_tool
