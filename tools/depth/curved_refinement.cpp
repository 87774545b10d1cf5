#include "tools/depth/curved_refinement.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace depth_tool {
namespace {

// Solves the n x n system A s = B by elimination with partial pivoting; false when a pivot is too
// small against the matrix's scale (the samples do not fix every term).
template <int n>
bool solve(double (&A)[n][n], double (&B)[n], double (&s)[n]) {
  double scale = 0;
  for (int i = 0; i < n; ++i) scale = std::max(scale, std::fabs(A[i][i]));
  for (int k = 0; k < n; ++k) {
    int p = k;
    for (int i = k + 1; i < n; ++i)
      if (std::fabs(A[i][k]) > std::fabs(A[p][k])) p = i;
    if (!(std::fabs(A[p][k]) > 1e-9 * scale)) return false;
    std::swap(A[p], A[k]), std::swap(B[p], B[k]);
    for (int i = k + 1; i < n; ++i) {
      const double r = A[i][k] / A[k][k];
      for (int j = k; j < n; ++j) A[i][j] -= r * A[k][j];
      B[i] -= r * B[k];
    }
  }
  for (int k = n - 1; k >= 0; --k) {
    double v = B[k];
    for (int j = k + 1; j < n; ++j) v -= A[k][j] * s[j];
    s[k] = v / A[k][k];
  }
  return true;
}

double value(const Quadric& q, double dx, double dy) {
  return q.a + q.b * dx + q.c * dy + q.d * dx * dx + q.e * dx * dy + q.f * dy * dy;
}

// Whether the neighbour sees the tangent plane of q at the window's centre within acos(min_facing)
// of its normal. Inverse depth linear in the camera-plane ray (rx, ry, 1) makes the plane
// beta X + gamma Y + alpha Z = 1 in the reference's frame, so (beta, gamma, alpha) is its normal.
bool faces(const WindowPair& p, const ReferenceWindow& window, const Quadric& q, double min_facing) {
  const double n[3] = {-q.b * window.fx, -q.c * window.fy,
                       q.a + q.b * window.fx * window.rx0 + q.c * window.fy * window.ry0};
  const double P[3] = {window.rx0 / q.a, window.ry0 / q.a, 1.0 / q.a};
  double C[3];  // the neighbour's centre, where M X + m = 0
  for (int i = 0; i < 3; ++i) C[i] = -(p.M[i] * p.m[0] + p.M[3 + i] * p.m[1] + p.M[6 + i] * p.m[2]);
  const double to_reference = -(n[0] * P[0] + n[1] * P[1] + n[2] * P[2]);
  const double to_neighbour = n[0] * (C[0] - P[0]) + n[1] * (C[1] - P[1]) + n[2] * (C[2] - P[2]);
  const double length = std::sqrt((n[0] * n[0] + n[1] * n[1] + n[2] * n[2]) *
                                  ((C[0] - P[0]) * (C[0] - P[0]) + (C[1] - P[1]) * (C[1] - P[1]) +
                                   (C[2] - P[2]) * (C[2] - P[2])));
  // The normal turned to face the reference, which sees the surface.
  return (to_reference < 0 ? -to_neighbour : to_neighbour) >= min_facing * length;
}

// The inverse depth at the window's centre where the window laid on q, moved along the ray by up
// to s.range labels, agrees best with the neighbours that face the surface and see the window at
// every depth tried: the vertex of the parabola through the best step and its two neighbours.
// False when no neighbour counts or the best lies at an end of the range.
bool best_along_ray(const std::vector<WindowPair>& pairs, const ReferenceWindow& window, Quadric q,
                    const CurvedRefinementSettings& s, std::vector<double>& cost, std::vector<double>& pair_costs,
                    double& best_w) {
  std::fill(cost.begin(), cost.end(), 0.0);
  const double centre = q.a, spacing = 2.0 * s.range * s.label_step / (s.steps - 1);
  bool seen = false;
  for (const WindowPair& p : pairs) {
    if (!faces(p, window, q, s.min_facing)) continue;
    bool all = true;
    for (int h = 0; h < s.steps && all; ++h) {
      q.a = centre - s.range * s.label_step + h * spacing;
      all = curved_window_cost(p, window, q, pair_costs[h]);
    }
    if (!all) continue;
    for (int h = 0; h < s.steps; ++h) cost[h] += pair_costs[h];
    seen = true;
  }
  const int best = static_cast<int>(std::min_element(cost.begin(), cost.end()) - cost.begin());
  if (!seen || best == 0 || best == s.steps - 1) return false;
  const double lo = cost[best - 1], mid = cost[best], hi = cost[best + 1];
  const double curvature = lo - 2 * mid + hi;
  const double offset = curvature > 0 ? 0.5 * (lo - hi) / curvature : 0.0;
  best_w = centre - s.range * s.label_step + (best + offset) * spacing;
  return true;
}

}  // namespace

bool fit_quadric(const CMatrix<float>& depth, int x, int y, int radius, double tolerance, Quadric& q) {
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
  // Least squares over the samples in use, with the first `terms` of 1, dx, dy, dx^2, dx dy, dy^2;
  // twice as many samples as terms, so that a single wrong depth cannot bend the surface.
  std::vector<char> use(samples.size());
  const auto fit = [&](auto terms) {
    constexpr int m = decltype(terms)::value;
    double A[m][m] = {}, B[m] = {}, s[m];
    int n = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      if (!use[i]) continue;
      const Sample& p = samples[i];
      const double t[6] = {1, p.dx, p.dy, p.dx * p.dx, p.dx * p.dy, p.dy * p.dy};
      for (int r = 0; r < m; ++r) {
        for (int c = 0; c < m; ++c) A[r][c] += t[r] * t[c];
        B[r] += t[r] * p.w;
      }
      ++n;
    }
    if (n < 2 * m || !solve(A, B, s)) return false;
    q = Quadric{};
    double* out[6] = {&q.a, &q.b, &q.c, &q.d, &q.e, &q.f};
    for (int r = 0; r < m; ++r) *out[r] = s[r];
    return true;
  };
  // Keeps the samples within three times their median distance from q (at least `tolerance`).
  const auto keep_near = [&] {
    std::vector<double> off(samples.size());
    for (std::size_t i = 0; i < samples.size(); ++i)
      off[i] = std::fabs(samples[i].w - value(q, samples[i].dx, samples[i].dy));
    std::vector<double> sorted = off;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<long>(sorted.size() / 2), sorted.end());
    const double limit = std::max(3.0 * sorted[sorted.size() / 2], tolerance);
    for (std::size_t i = 0; i < samples.size(); ++i) use[i] = off[i] <= limit;
  };
  // The start is a plane through the depths next to the pixel, so that another surface filling a
  // corner of the window cannot pull the first fit; the quadric is then fitted twice, each time to
  // the depths near the fit before.
  for (std::size_t i = 0; i < samples.size(); ++i)
    use[i] = std::fabs(samples[i].dx) <= 2 && std::fabs(samples[i].dy) <= 2;
  if (!fit(std::integral_constant<int, 3>{})) return false;
  for (int round = 0; round < 2; ++round) {
    keep_near();
    if (!fit(std::integral_constant<int, 6>{})) return false;
  }
  return q.a > 0;
}

bool curved_window_cost(const WindowPair& p, const ReferenceWindow& win, const Quadric& q, double& cost) {
  const int R = win.radius, n = (2 * R + 1) * (2 * R + 1);
  // The neighbour's point is M r + m w for the reference ray r = (rx0 - dx / fx, ry0 - dy / fy, 1):
  // M r is affine in the window offset, w the quadric.
  double r0[3], rx[3], ry[3];
  for (int i = 0; i < 3; ++i) {
    const double* M = p.M + 3 * i;
    r0[i] = M[0] * win.rx0 + M[1] * win.ry0 + M[2];
    rx[i] = -M[0] / win.fx;
    ry[i] = -M[1] / win.fy;
  }
  double sum = 0, squares = 0, cross = 0;
  for (int dy = -R, k = 0; dy <= R; ++dy)
    for (int dx = -R; dx <= R; ++dx, ++k) {
      const double w = value(q, dx, dy);
      if (!(w > 0)) return false;
      const double qx = r0[0] + dx * rx[0] + dy * ry[0] + p.m[0] * w;
      const double qy = r0[1] + dx * rx[1] + dy * ry[1] + p.m[1] * w;
      const double qz = r0[2] + dx * rx[2] + dy * ry[2] + p.m[2] * w;
      if (!(qz > 0)) return false;
      const double u = p.cx - p.fx * qx / qz, v = p.cy - p.fy * qy / qz;
      if (!(u >= 0 && v >= 0 && u <= p.W - 1 && v <= p.H - 1)) return false;
      const float g = p.grey.sample(static_cast<float>(u), static_cast<float>(v));
      sum += g, squares += static_cast<double>(g) * g, cross += static_cast<double>(win.centred[k]) * g;
    }
  const double var = squares - sum * sum / n;
  cost = var > 1e-6 ? 1.0 - cross / std::sqrt(var * win.norm) : 1.0;
  return true;
}

long refine_on_curved_windows(CMatrix<float>& depth, const Camera& reference,
                              const std::vector<const Camera*>& neighbours, const CurvedRefinementSettings& s) {
  const ViewGeometry r = view_geometry(reference);
  const std::vector<WindowPair> pairs = window_pairs(r, neighbours);
  const Grey ref = grey_of(reference.image);
  const int W = reference.width, H = reference.height;
  const CMatrix<float> input = depth;
  long moved = 0;
#pragma omp parallel for schedule(dynamic, 4) reduction(+ : moved)
  for (int y = 0; y < H; ++y) {
    ReferenceWindow window;
    std::vector<double> cost(static_cast<std::size_t>(s.steps)), pair_costs(static_cast<std::size_t>(s.steps));
    for (int x = 0; x < W; ++x) {
      if (!(input(x, y) > 0)) continue;
      Quadric q;
      double w;
      if (!fit_quadric(input, x, y, s.fit_radius, 2.0 * s.label_step, q) ||
          !reference_window(ref, r, x, y, s.radius, window) ||
          !best_along_ray(pairs, window, q, s, cost, pair_costs, w))
        continue;
      depth(x, y) = static_cast<float>(1.0 / w);
      ++moved;
    }
  }
  return moved;
}

}  // namespace depth_tool
