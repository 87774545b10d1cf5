#include "src/seed/measured_planes.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include <Eigen/Dense>

#include "device/vector_math.h"
#include "src/particles/particles_from_depthmap.h"

namespace {

// Ray coordinates of array pixels: the camera-frame point of pixel (x, y) at depth z is
// z * (u(x), v(y), 1), with the pixel index mirrored as everywhere in the views.
struct RayCoordinates {
  float u(int x) const { return (static_cast<float>(width - 1 - x) - cx) * inv_fx; }
  float v(int y) const { return (static_cast<float>(height - 1 - y) - cy) * inv_fy; }
  int width, height;
  float cx, cy, inv_fx, inv_fy;
};

struct Neighbour {
  double du, dv, w, depth;  // ray coordinates relative to the pixel's, inverse depth, depth
};

struct Fit {
  double a = 0, b = 0, c = 0;  // 1 / z = a du + b dv + c
  bool ok = false;
};

// Weighted least squares of w = a du + b dv + c, with `ridge` added to the slopes' diagonal.
Fit solve(const Neighbour* points, const double* weights, int count, double ridge) {
  double suu = 0, suv = 0, svv = 0, su = 0, sv = 0, s = 0, suw = 0, svw = 0, sw = 0;
  for (int k = 0; k < count; ++k) {
    const Neighbour& p = points[k];
    const double o = weights[k];
    suu += o * p.du * p.du;
    suv += o * p.du * p.dv;
    svv += o * p.dv * p.dv;
    su += o * p.du;
    sv += o * p.dv;
    s += o;
    suw += o * p.du * p.w;
    svw += o * p.dv * p.w;
    sw += o * p.w;
  }
  Eigen::Matrix3d m;
  m << suu + ridge * s, suv, su, suv, svv + ridge * s, sv, su, sv, s;
  const double det = m.determinant();
  if (!(std::fabs(det) > 0.0)) return {};
  const Eigen::Vector3d x = m.inverse() * Eigen::Vector3d(suw, svw, sw);
  Fit f;
  f.a = x(0);
  f.b = x(1);
  f.c = x(2);
  f.ok = std::isfinite(f.a) && std::isfinite(f.b) && f.c > 0.0;
  return f;
}

// Depth of a pixel's neighbour against the plane, as a distance along its ray.
double depth_residual(const Fit& fit, const Neighbour& p) {
  const double predicted = fit.a * p.du + fit.b * p.dv + fit.c;
  return predicted > 0.0 ? std::fabs(1.0 / predicted - p.depth) : 1.0;
}

// The measured points within `half` pixels of (x, y), and after them those within `wide` pixels
// (when wider), whose depths lie within `tolerance` per pixel of distance of the pixel's own, in
// ray coordinates relative to the pixel's. Returns the number within `half`; `count` gets all.
int gather(const CMatrix<float>& measured, const RayCoordinates& ray, int x, int y, int half, int wide,
           float tolerance, float min_depth, float max_depth, std::vector<Neighbour>& points, int& count) {
  const float b = measured(x, y);
  const double u0 = ray.u(x), v0 = ray.v(y);
  count = 0;
  const auto add = [&](int xx, int yy) {
    const float d = measured(xx, yy);
    const int steps = std::max({std::abs(xx - x), std::abs(yy - y), 1});
    if (usable_depth(d, min_depth, max_depth) && std::fabs(d - b) <= tolerance * static_cast<float>(steps))
      points[count++] = {ray.u(xx) - u0, ray.v(yy) - v0, 1.0 / d, d};
  };
  for (int yy = std::max(0, y - half); yy <= std::min(measured.ySize - 1, y + half); ++yy)
    for (int xx = std::max(0, x - half); xx <= std::min(measured.xSize - 1, x + half); ++xx) add(xx, yy);
  const int inner = count;
  for (int yy = std::max(0, y - wide); yy <= std::min(measured.ySize - 1, y + wide); ++yy)
    for (int xx = std::max(0, x - wide); xx <= std::min(measured.xSize - 1, x + wide); ++xx)
      if (std::abs(xx - x) > half || std::abs(yy - y) > half) add(xx, yy);
  return inner;
}

// Three rounds of least squares, with weights that fall with the distance from the previous fit.
Fit robust_fit(const std::vector<Neighbour>& points, std::vector<double>& weights, int count, double ridge) {
  Fit fit;
  if (count < 4) return fit;
  std::fill(weights.begin(), weights.begin() + count, 1.0);
  for (int round = 0; round < 3; ++round) {
    fit = solve(points.data(), weights.data(), count, ridge);
    if (!fit.ok || round == 2) break;
    for (int k = 0; k < count; ++k) weights[k] = 1.0 / (depth_residual(fit, points[k]) + 0.001);
  }
  return fit;
}

// The robust spread of the measured depths about the plane (a standard deviation from their median
// distance), at least the depth maps' step of a thousandth.
double depth_spread(const Fit& fit, const std::vector<Neighbour>& points, std::vector<double>& residuals,
                    int count) {
  for (int k = 0; k < count; ++k) residuals[k] = depth_residual(fit, points[k]);
  std::nth_element(residuals.begin(), residuals.begin() + count / 2, residuals.begin() + count);
  return std::max(1.4826 * residuals[count / 2], 0.001);
}

// The wide window's plane, not ok where the window curves: one round of biweights about the small
// window's plane at the spread of single depths (points within it keep nearly full weight, points
// more than 4.685 spreads off none), then the plane and, with the same weights, the plane plus a
// term k (du^2 + dv^2). Over a window symmetric about the pixel that term takes up the offset any
// quadratic surface gives a plane at the pixel, so the two centres part where the surface curves;
// their difference has a standard deviation of about sqrt(2.5 / n) spreads over n points when
// it does not.
Fit wide_plane(const Fit& fit, const std::vector<Neighbour>& points, int count, double spread, double pixels,
               double ridge) {
  const double reach = 4.685 * spread;
  // Sums of weight times 1, u, v, uu, uv, vv, w, uw, vw and, with q = (du^2 + dv^2) in pixels, q, uq, vq, qq, qw.
  double S[14] = {};
  for (int k = 0; k < count; ++k) {
    const Neighbour& p = points[k];
    // The depth residual to first order, without a division per point.
    const double r = std::fabs(fit.a * p.du + fit.b * p.dv + fit.c - p.w) * p.depth * p.depth / reach;
    if (!(r < 1.0)) continue;
    const double o = (1.0 - r * r) * (1.0 - r * r);
    const double q = (p.du * p.du + p.dv * p.dv) * pixels * pixels;
    const double terms[14] = {1.0,      p.du,        p.dv, p.du * p.du, p.du * p.dv, p.dv * p.dv, p.w,
                              p.du * p.w, p.dv * p.w, q,    p.du * q,    p.dv * q,    q * q,       q * p.w};
    for (int t = 0; t < 14; ++t) S[t] += o * terms[t];
  }
  const double s = S[0];
  if (!(s >= 4.0)) return {};
  Eigen::Matrix3d m;
  m << S[3] + ridge * s, S[4], S[1], S[4], S[5] + ridge * s, S[2], S[1], S[2], s;
  const Eigen::Vector3d plane = m.inverse() * Eigen::Vector3d(S[7], S[8], S[6]);
  Eigen::Matrix4d m4;
  m4 << s, S[1], S[2], S[9], S[1], S[3], S[4], S[10], S[2], S[4], S[5], S[11], S[9], S[10], S[11], S[12];
  const Eigen::Vector4d curved = m4.ldlt().solve(Eigen::Vector4d(S[6], S[7], S[8], S[13]));
  Fit out;
  out.a = plane(0);
  out.b = plane(1);
  out.c = plane(2);
  out.ok = std::isfinite(out.a) && std::isfinite(out.b) && out.c > 0.0 && curved(0) > 0.0 &&
           std::fabs(1.0 / curved(0) - 1.0 / out.c) <= 2.0 * spread * std::sqrt(2.5 / s);
  return out;
}

}  // namespace

void measured_planes(CMatrix<float>& depth, CMatrix<float3>& normal_map, const CMatrix<float>& measured,
                     const Camera& camera, float footprints, int window, int wide_window, float min_depth,
                     float max_depth) {
  const int width = measured.xSize, height = measured.ySize;
  depth.setSize(width, height);
  normal_map.setSize(width, height);
  const RayCoordinates ray{width, height, camera.K[6], camera.K[7], 1.0f / camera.K[0], 1.0f / camera.K[4]};
  const float* R = camera.R;
  // Turns a camera-frame direction into the world frame (R is stored by columns).
  const auto to_world = [R](double x, double y, double z) {
    return make_float3(static_cast<float>(R[0] * x + R[1] * y + R[2] * z),
                       static_cast<float>(R[3] * x + R[4] * y + R[5] * z),
                       static_cast<float>(R[6] * x + R[7] * y + R[8] * z));
  };
  // The slope preference: a thousandth of the spread of a window one pixel wide, enough to settle
  // the slope across a line of points and too little to bend the fit where the window is lopsided
  // (at the image border).
  const double ridge = 1e-3 * static_cast<double>(ray.inv_fx) * static_cast<double>(ray.inv_fy);
  const int span = 2 * std::max(window, wide_window) + 1;
#pragma omp parallel
  {
    std::vector<Neighbour> points(static_cast<std::size_t>(span) * span);
    std::vector<double> weights(points.size()), residuals(points.size());
#pragma omp for schedule(dynamic, 4)
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) {
        const float b = measured(x, y);
        if (!usable_depth(b, min_depth, max_depth)) {
          depth(x, y) = 0.0f;
          normal_map(x, y) = make_float3(0.0f, 0.0f, 0.0f);
          continue;
        }
        const double u0 = ray.u(x), v0 = ray.v(y);
        const float footprint = b * ray.inv_fx, tolerance = footprints * footprint;
        int count = 0;
        const int inner = gather(measured, ray, x, y, window, wide_window, tolerance, min_depth, max_depth, points,
                                 count);
        Fit fit = robust_fit(points, weights, inner, ridge);
        // Where the small window leaves the depth uncertain by more than a tenth of a footprint, the
        // wide window's plane is taken if it agrees with the small one and the wide window does not
        // curve: a surface that curves or ends within it moves its plane away from the small one's.
        if (fit.ok && count > inner) {
          // The plane's depth at the pixel is uncertain by the spread over the root of the points' number.
          const double spread = depth_spread(fit, points, residuals, inner);
          const double uncertainty = spread / std::sqrt(static_cast<double>(inner));
          if (uncertainty > kWideningUncertainty * footprint) {
            const Fit wide = wide_plane(fit, points, count, spread, 1.0 / ray.inv_fx, ridge);
            if (wide.ok && std::fabs(1.0 / wide.c - 1.0 / fit.c) <= 3.0 * uncertainty) fit = wide;
          }
        }
        const float plane_depth = fit.ok ? static_cast<float>(1.0 / fit.c) : 0.0f;
        if (fit.ok && std::fabs(plane_depth - b) <= tolerance) {
          // 1 / z = a' u + b' v + c' in absolute ray coordinates; the normal faces the camera.
          const double a = fit.a, bb = fit.b, c = fit.c - fit.a * u0 - fit.b * v0;
          const double norm = std::sqrt(a * a + bb * bb + c * c);
          depth(x, y) = plane_depth;
          normal_map(x, y) = to_world(-a / norm, -bb / norm, -c / norm);
        } else {
          const double norm = std::sqrt(u0 * u0 + v0 * v0 + 1.0);
          depth(x, y) = b;
          normal_map(x, y) = to_world(-u0 / norm, -v0 / norm, -1.0 / norm);
        }
      }
  }
}
