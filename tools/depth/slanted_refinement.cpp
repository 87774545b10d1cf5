#include "tools/depth/slanted_refinement.h"

#include <algorithm>
#include <cmath>

#include "tools/depth/view_geometry.h"

namespace depth_tool {
namespace {

struct Grey {
  int W = 0, H = 0;
  std::vector<float> v;
  float at(int x, int y) const { return v[static_cast<std::size_t>(y) * W + x]; }
  // Bilinear, (x, y) inside [0, W - 1] x [0, H - 1].
  float sample(float x, float y) const {
    const int x0 = std::min(static_cast<int>(x), W - 2), y0 = std::min(static_cast<int>(y), H - 2);
    const float fx = x - static_cast<float>(x0), fy = y - static_cast<float>(y0);
    const float* p = &v[static_cast<std::size_t>(y0) * W + x0];
    return (1 - fy) * ((1 - fx) * p[0] + fx * p[1]) + fy * ((1 - fx) * p[W] + fx * p[W + 1]);
  }
};

Grey grey_of(const CMatrix<uchar4>& image) {
  Grey g{image.xSize, image.ySize, std::vector<float>(image.size())};
  for (std::size_t i = 0; i < image.size(); ++i) {
    const uchar4 c = image.data[i];
    g.v[i] = (static_cast<float>(c.x) + static_cast<float>(c.y) + static_cast<float>(c.z)) / 3.0f;
  }
  return g;
}

// A neighbour as seen from the reference camera: Q = M r / w + m for the reference ray r of a
// pixel at inverse depth w, so that Q * w = M r + m w is affine in the pixel and in w.
struct Pair {
  double M[9], m[3];
  double fx, fy, cx, cy;
  int W, H;
  Grey grey;
};

Pair pair_of(const ViewGeometry& r, const ViewGeometry& o, Grey grey) {
  Pair p;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      double s = 0;
      for (int k = 0; k < 3; ++k) s += o.R[3 * i + k] * r.R[3 * j + k];  // R_o R_r^T
      p.M[3 * i + j] = s;
    }
  for (int i = 0; i < 3; ++i)
    p.m[i] = o.t[i] - (p.M[3 * i] * r.t[0] + p.M[3 * i + 1] * r.t[1] + p.M[3 * i + 2] * r.t[2]);
  p.fx = o.fx, p.fy = o.fy, p.cx = o.cx, p.cy = o.cy, p.W = o.width, p.H = o.height;
  p.grey = std::move(grey);
  return p;
}

// Inverse depth as a + b dx + c dy around a pixel, fitted to the valid depths of its window; a
// second fit leaves out those that lie far off the first (other surfaces, wrong depths): beyond
// three times their median distance from it, and at least `tolerance`.
bool fit_plane(const CMatrix<float>& depth, int x, int y, int radius, double tolerance, double& a, double& b,
               double& c) {
  struct Sample {
    double dx, dy, w;
  };
  std::vector<Sample> samples;
  for (int dy = -radius; dy <= radius; ++dy)
    for (int dx = -radius; dx <= radius; ++dx) {
      const int u = x + dx, v = y + dy;
      if (u >= 0 && v >= 0 && u < depth.xSize && v < depth.ySize && depth(u, v) > 0)
        samples.push_back({static_cast<double>(dx), static_cast<double>(dy), 1.0 / depth(u, v)});
    }
  std::vector<char> use(samples.size(), 1);
  for (int round = 0; round < 2; ++round) {
    double n = 0, sx = 0, sy = 0, sw = 0, sxx = 0, syy = 0, sxy = 0, sxw = 0, syw = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      if (!use[i]) continue;
      const Sample& q = samples[i];
      n += 1, sx += q.dx, sy += q.dy, sw += q.w, sxx += q.dx * q.dx, syy += q.dy * q.dy, sxy += q.dx * q.dy,
          sxw += q.dx * q.w, syw += q.dy * q.w;
    }
    if (n < 6) return round == 1 && a > 0;  // too few left: the first fit stands
    // Normal equations of the 3 x 3 least-squares problem, solved by Cramer's rule.
    const double A[9] = {n, sx, sy, sx, sxx, sxy, sy, sxy, syy}, B[3] = {sw, sxw, syw};
    const auto det3 = [](const double* m) {
      return m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
             m[2] * (m[3] * m[7] - m[4] * m[6]);
    };
    const double d = det3(A);
    if (std::fabs(d) < 1e-9) return round == 1 && a > 0;
    double s[3];
    for (int k = 0; k < 3; ++k) {
      double Ak[9];
      std::copy(A, A + 9, Ak);
      for (int r = 0; r < 3; ++r) Ak[3 * r + k] = B[r];
      s[k] = det3(Ak) / d;
    }
    a = s[0], b = s[1], c = s[2];
    if (round == 1) break;
    std::vector<double> off(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
      off[i] = std::fabs(samples[i].w - (a + b * samples[i].dx + c * samples[i].dy));
    std::vector<double> sorted = off;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<long>(sorted.size() / 2), sorted.end());
    const double limit = std::max(3.0 * sorted[sorted.size() / 2], tolerance);
    for (std::size_t i = 0; i < samples.size(); ++i) use[i] = off[i] <= limit;
  }
  return a > 0;
}

}  // namespace

RefinementStatistics refine_on_slanted_windows(CMatrix<float>& depth, const Camera& reference,
                                               const std::vector<const Camera*>& neighbours,
                                               const RefinementSettings& s, CMatrix<float>* score) {
  const ViewGeometry r = view_geometry(reference);
  std::vector<Pair> pairs;
  for (const Camera* n : neighbours) pairs.push_back(pair_of(r, view_geometry(*n), grey_of(n->image)));
  const Grey ref = grey_of(reference.image);
  const int W = reference.width, H = reference.height, R = s.radius, side = 2 * R + 1, n_window = side * side;
  const CMatrix<float> input = depth;
  if (score) score->setSize(W, H);
  RefinementStatistics stats;
  long refined = 0, unmatched = 0;
#pragma omp parallel for schedule(dynamic, 4) reduction(+ : refined, unmatched)
  for (int y = 0; y < H; ++y) {
    std::vector<float> centred(static_cast<std::size_t>(n_window));
    std::vector<double> cost(static_cast<std::size_t>(s.steps));
    std::vector<int> seen(static_cast<std::size_t>(s.steps));
    for (int x = 0; x < W; ++x) {
      float& out = depth(x, y);
      if (!(input(x, y) > 0)) continue;
      double a, b, c;
      const bool inside = x >= R && y >= R && x < W - R && y < H - R;
      if (!inside || !fit_plane(input, x, y, R, 2.0 * s.label_step, a, b, c)) {
        out = 0, ++unmatched;
        continue;
      }
      // The reference window, less its mean.
      double mean = 0;
      for (int dy = -R, k = 0; dy <= R; ++dy)
        for (int dx = -R; dx <= R; ++dx, ++k) mean += centred[k] = ref.at(x + dx, y + dy);
      mean /= n_window;
      double norm = 0;
      for (float& v : centred) v = static_cast<float>(v - mean), norm += static_cast<double>(v) * v;
      if (norm < 1e-3 * n_window) {
        out = 0, ++unmatched;
        continue;
      }
      std::fill(cost.begin(), cost.end(), 0.0);
      std::fill(seen.begin(), seen.end(), 0);
      // The camera-plane ray of a pixel is affine in it: r = (cx - x) / fx, (cy - y) / fy, 1.
      const double rx0 = (r.cx - x) / r.fx, ry0 = (r.cy - y) / r.fy;
      for (const Pair& p : pairs) {
        double hyp_cost[64];
        bool all = true;
        for (int h = 0; h < s.steps && all; ++h) {
          const double shift = s.steps > 1 ? s.range * s.label_step * (2.0 * h / (s.steps - 1) - 1.0) : 0.0;
          double sum = 0, squares = 0, cross = 0;
          for (int dy = -R, k = 0; dy <= R && all; ++dy)
            for (int dx = -R; dx <= R; ++dx, ++k) {
              const double w = a + shift + b * dx + c * dy;
              const double rx = rx0 - dx / r.fx, ry = ry0 - dy / r.fy;
              const double qx = p.M[0] * rx + p.M[1] * ry + p.M[2] + p.m[0] * w;
              const double qy = p.M[3] * rx + p.M[4] * ry + p.M[5] + p.m[1] * w;
              const double qz = p.M[6] * rx + p.M[7] * ry + p.M[8] + p.m[2] * w;
              if (!(qz > 0) || !(w > 0)) {
                all = false;
                break;
              }
              const double u = p.cx - p.fx * qx / qz, v = p.cy - p.fy * qy / qz;
              if (!(u >= 0 && v >= 0 && u <= p.W - 1 && v <= p.H - 1)) {
                all = false;
                break;
              }
              const float g = p.grey.sample(static_cast<float>(u), static_cast<float>(v));
              sum += g, squares += static_cast<double>(g) * g, cross += static_cast<double>(centred[k]) * g;
            }
          if (!all) break;
          const double var = squares - sum * sum / n_window;
          hyp_cost[h] = var > 1e-6 ? 1.0 - cross / std::sqrt(var * norm) : 1.0;
        }
        if (!all) continue;
        for (int h = 0; h < s.steps; ++h) cost[h] += hyp_cost[h], ++seen[h];
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
