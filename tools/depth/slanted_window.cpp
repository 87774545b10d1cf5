#include "tools/depth/slanted_window.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "src/core/simd_lanes.h"

namespace depth_tool {

Grey grey_of(const CMatrix<uchar4>& image) {
  Grey g{image.xSize, image.ySize, std::vector<float>(image.size())};
  for (std::size_t i = 0; i < image.size(); ++i) {
    const uchar4 c = image.data[i];
    g.v[i] = (static_cast<float>(c.x) + static_cast<float>(c.y) + static_cast<float>(c.z)) / 3.0f;
  }
  return g;
}

WindowPair window_pair(const ViewGeometry& r, const Camera& neighbour) {
  const ViewGeometry o = view_geometry(neighbour);
  WindowPair p;
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j) {
      double s = 0;
      for (int k = 0; k < 3; ++k) s += o.R[3 * i + k] * r.R[3 * j + k];  // R_o R_r^T
      p.M[3 * i + j] = s;
    }
  for (int i = 0; i < 3; ++i)
    p.m[i] = o.t[i] - (p.M[3 * i] * r.t[0] + p.M[3 * i + 1] * r.t[1] + p.M[3 * i + 2] * r.t[2]);
  p.fx = o.fx, p.fy = o.fy, p.cx = o.cx, p.cy = o.cy, p.W = o.width, p.H = o.height;
  p.grey = grey_of(neighbour.image);
  return p;
}

std::vector<WindowPair> window_pairs(const ViewGeometry& reference, const std::vector<const Camera*>& neighbours) {
  std::vector<WindowPair> pairs;
  pairs.reserve(neighbours.size());
  for (const Camera* n : neighbours) pairs.push_back(window_pair(reference, *n));
  return pairs;
}

bool reference_window(const Grey& ref, const ViewGeometry& r, int x, int y, int radius, ReferenceWindow& w,
                      int stride) {
  if (x < radius || y < radius || x >= ref.W - radius || y >= ref.H - radius) return false;
  const int R = radius / stride, side = 2 * R + 1, n = side * side;
  w.x = x, w.y = y, w.radius = R, w.fx = r.fx / stride, w.fy = r.fy / stride;
  // The camera-plane ray of a pixel is affine in it: r = (cx - x) / fx, (cy - y) / fy, 1.
  w.rx0 = (r.cx - x) / r.fx, w.ry0 = (r.cy - y) / r.fy;
  w.centred.resize(static_cast<std::size_t>(n));
  double mean = 0;
  for (int dy = -R, k = 0; dy <= R; ++dy)
    for (int dx = -R; dx <= R; ++dx, ++k) mean += w.centred[k] = ref.at(x + stride * dx, y + stride * dy);
  mean /= n;
  w.norm = 0;
  for (float& v : w.centred) v = static_cast<float>(v - mean), w.norm += static_cast<double>(v) * v;
  return w.norm >= 1e-3 * n;
}

namespace {

// Four window pixels of a row side by side: the projection in double, the samples in float, each
// lane computing exactly what the one-pixel form computes.
typedef double double_lanes __attribute__((vector_size(32)));
typedef long long long_lanes __attribute__((vector_size(32)));  // masks of double lanes
typedef float float_lanes __attribute__((vector_size(16)));
typedef int int_lanes __attribute__((vector_size(16)));
typedef float float_pairs __attribute__((vector_size(32)));     // two neighbouring pixels per lane
typedef long long pair_words __attribute__((vector_size(32)));  // the same, as 8-byte words
constexpr int kWindowLanes = 4;

// The grey values at index at and at + 1 of every lane (two neighbouring pixels of a row) and the
// same a row below, each pair read as one 8-byte word, the vectors built in one expression rather
// than lane by lane through memory.
LANE_INLINE void grey_quads(const float* v, int W, int_lanes at, float_lanes& p00, float_lanes& p10,
                            float_lanes& p01, float_lanes& p11) {
  const auto word = [v](int i) {
    long long w;
    std::memcpy(&w, v + i, sizeof w);
    return w;
  };
  const int i0 = at[0], i1 = at[1], i2 = at[2], i3 = at[3];
  const pair_words top = {word(i0), word(i1), word(i2), word(i3)};
  const pair_words below = {word(i0 + W), word(i1 + W), word(i2 + W), word(i3 + W)};
  float_pairs pairs;
  std::memcpy(&pairs, &top, sizeof pairs);
  p00 = __builtin_shufflevector(pairs, pairs, 0, 2, 4, 6);
  p10 = __builtin_shufflevector(pairs, pairs, 1, 3, 5, 7);
  std::memcpy(&pairs, &below, sizeof pairs);
  p01 = __builtin_shufflevector(pairs, pairs, 0, 2, 4, 6);
  p11 = __builtin_shufflevector(pairs, pairs, 1, 3, 5, 7);
}

// Grey::sample of every lane, (x, y) inside the image.
LANE_INLINE float_lanes sample_lanes(const Grey& g, float_lanes x, float_lanes y) {
  const int_lanes right = {g.W - 2, g.W - 2, g.W - 2, g.W - 2}, bottom = {g.H - 2, g.H - 2, g.H - 2, g.H - 2};
  int_lanes x0 = __builtin_convertvector(x, int_lanes), y0 = __builtin_convertvector(y, int_lanes);
  x0 = x0 < right ? x0 : right;
  y0 = y0 < bottom ? y0 : bottom;
  const float_lanes fx = x - __builtin_convertvector(x0, float_lanes);
  const float_lanes fy = y - __builtin_convertvector(y0, float_lanes);
  float_lanes p00, p10, p01, p11;
  grey_quads(g.v.data(), g.W, y0 * g.W + x0, p00, p10, p01, p11);
  return (1 - fy) * ((1 - fx) * p00 + fx * p10) + fy * ((1 - fx) * p01 + fx * p11);
}

// The offsets of a window's pixels in order, padded to whole groups of lanes by repeating the
// last pixel; kept per thread for the radius last asked for.
struct WindowOffsets {
  int radius = -1;
  std::vector<double> dx, dy;
};

const WindowOffsets& window_offsets(int radius) {
  thread_local WindowOffsets o;
  if (o.radius != radius) {
    const int side = 2 * radius + 1, n = side * side, padded = (n + kWindowLanes - 1) / kWindowLanes * kWindowLanes;
    o.radius = radius;
    o.dx.resize(static_cast<std::size_t>(padded));
    o.dy.resize(static_cast<std::size_t>(padded));
    for (int k = 0; k < padded; ++k) {
      const int at = std::min(k, n - 1);
      o.dx[k] = at % side - radius, o.dy[k] = at / side - radius;
    }
  }
  return o;
}

}  // namespace

LANE_KERNEL bool window_cost(const WindowPair& p, const ReferenceWindow& win, double a, double b, double c,
                             double& cost) {
  const int R = win.radius, n = (2 * R + 1) * (2 * R + 1);
  // The inverse depth w = a + b dx + c dy is affine in the window offset; positive at the
  // window's corners, it is positive everywhere in it.
  for (int sy = -1; sy <= 1; sy += 2)
    for (int sx = -1; sx <= 1; sx += 2)
      if (!(a + R * (sx * b + sy * c) > 0)) return false;
  // So is q = M r + m w, with r = (rx0 - dx / fx, ry0 - dy / fy, 1): q = q0 + dx qx + dy qy,
  // which leaves one division per window pixel.
  double q0[3], qx[3], qy[3];
  for (int i = 0; i < 3; ++i) {
    const double* M = p.M + 3 * i;
    q0[i] = M[0] * win.rx0 + M[1] * win.ry0 + M[2] + p.m[i] * a;
    qx[i] = p.m[i] * b - M[0] / win.fx;
    qy[i] = p.m[i] * c - M[1] / win.fy;
  }
  const double right = p.W - 1, bottom = p.H - 1;
  const float* centred = win.centred.data();
  double sum = 0, squares = 0, cross = 0;
  // The window's pixels in order, four at a time across the ends of its rows (a row of a small
  // window would leave most lanes of its last group idle); the last group repeats the last pixel
  // in the lanes beyond it.
  const WindowOffsets& offsets = window_offsets(R);
  for (int k0 = 0; k0 < n; k0 += kWindowLanes) {
    double_lanes dx, dy;
    std::memcpy(&dx, &offsets.dx[k0], sizeof dx);
    std::memcpy(&dy, &offsets.dy[k0], sizeof dy);
    // q at (dx, dy) as the row-by-row form computes it: the row's q at dx = 0, then along the row.
    const double_lanes row0 = q0[0] + dy * qy[0], row1 = q0[1] + dy * qy[1], row2 = q0[2] + dy * qy[2];
    const double_lanes qz = row2 + dx * qx[2];
    const double_lanes inverse = 1.0 / qz;
    const double_lanes u = p.cx - p.fx * (row0 + dx * qx[0]) * inverse, v = p.cy - p.fy * (row1 + dx * qx[1]) * inverse;
    // Every lane in front of the camera and inside the neighbour's image (NaN fails both).
    const long_lanes inside = (qz > 0) & (u >= 0) & (v >= 0) & (u <= right) & (v <= bottom);
    if ((inside[0] & inside[1] & inside[2] & inside[3]) == 0) return false;
    const float_lanes g = sample_lanes(p.grey, __builtin_convertvector(u, float_lanes),
                                       __builtin_convertvector(v, float_lanes));
    // The sums in window order, as the one-pixel form adds them.
    const int lanes = std::min(kWindowLanes, n - k0);
    for (int l = 0; l < lanes; ++l)
      sum += g[l], squares += static_cast<double>(g[l]) * g[l], cross += static_cast<double>(centred[k0 + l]) * g[l];
  }
  const double var = squares - sum * sum / n;
  cost = var > 1e-6 ? 1.0 - cross / std::sqrt(var * win.norm) : 1.0;
  return true;
}

bool mean_cost(const std::vector<WindowPair>& pairs, const ReferenceWindow& window, double a, double b, double c,
               double& cost) {
  double sum = 0;
  int seen = 0;
  for (const WindowPair& p : pairs) {
    double one;
    if (window_cost(p, window, a, b, c, one)) sum += one, ++seen;
  }
  cost = seen > 0 ? sum / seen : 0;
  return seen > 0;
}

namespace {

struct PlaneSample {
  double dx, dy, w;
};

// The working arrays of fit_plane, kept per thread: it runs once per pixel and pass, and
// allocating them each time cost as much as the fit.
struct PlaneFitScratch {
  std::vector<PlaneSample> samples;
  std::vector<char> use;
  std::vector<double> off, sorted;
};

}  // namespace

bool fit_plane(const CMatrix<float>& depth, int x, int y, int radius, double tolerance, double& a, double& b,
               double& c) {
  thread_local PlaneFitScratch scratch;
  std::vector<PlaneSample>& samples = scratch.samples;
  samples.clear();
  for (int dy = -radius; dy <= radius; ++dy)
    for (int dx = -radius; dx <= radius; ++dx) {
      const int u = x + dx, v = y + dy;
      if (u >= 0 && v >= 0 && u < depth.xSize && v < depth.ySize && depth(u, v) > 0)
        samples.push_back({static_cast<double>(dx), static_cast<double>(dy), 1.0 / depth(u, v)});
    }
  std::vector<char>& use = scratch.use;
  use.assign(samples.size(), 1);
  for (int round = 0; round < 2; ++round) {
    double n = 0, sx = 0, sy = 0, sw = 0, sxx = 0, syy = 0, sxy = 0, sxw = 0, syw = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      if (!use[i]) continue;
      const PlaneSample& q = samples[i];
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
    std::vector<double>& off = scratch.off;
    off.resize(samples.size());
    bool all_within = true;
    for (std::size_t i = 0; i < samples.size(); ++i) {
      off[i] = std::fabs(samples[i].w - (a + b * samples[i].dx + c * samples[i].dy));
      all_within &= off[i] <= tolerance;
    }
    // Within the tolerance every sample stays, and the second fit would repeat the first.
    if (all_within) break;
    std::vector<double>& sorted = scratch.sorted;
    sorted = off;
    std::nth_element(sorted.begin(), sorted.begin() + static_cast<long>(sorted.size() / 2), sorted.end());
    const double limit = std::max(3.0 * sorted[sorted.size() / 2], tolerance);
    for (std::size_t i = 0; i < samples.size(); ++i) use[i] = off[i] <= limit;
  }
  return a > 0;
}

}  // namespace depth_tool
