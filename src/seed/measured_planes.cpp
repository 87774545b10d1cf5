#include "src/seed/measured_planes.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include <Eigen/Dense>

#include "src/core/simd_lanes.h"
#include "src/particles/particles_from_depthmap.h"

namespace {

// One pixel's window laid out for lanes: the offsets within the small window first, then those
// out to the wide window, each part padded to whole lanes with slots that never count. The ray
// coordinates of a neighbour relative to the pixel's depend on its offset only, so they are laid
// out once per view.
struct WindowLayout {
  std::vector<int> at;        // the slot's offset in the bordered depth image
  std::vector<float> slot;    // 1 for a slot of the window, 0 for padding
  std::vector<float> du, dv;  // ray coordinates relative to the pixel's
  std::vector<float> steps;   // pixels from the pixel, at least 1: the depth tolerance's multiple
  std::vector<float> q;       // squared distance from the pixel in horizontal pixels
  int inner = 0, slots = 0;   // slots of the small window, of both (multiples of kLanes)
};

WindowLayout window_layout(int half, int wide, int bordered_width, float inv_fx, float inv_fy) {
  WindowLayout layout;
  const auto add = [&](int dx, int dy, bool real) {
    layout.at.push_back(dy * bordered_width + dx);
    layout.slot.push_back(real ? 1.0f : 0.0f);
    // Columns and rows run against the ray coordinates: the views mirror the pixel index.
    layout.du.push_back(static_cast<float>(-dx * static_cast<double>(inv_fx)));
    layout.dv.push_back(static_cast<float>(-dy * static_cast<double>(inv_fy)));
    layout.steps.push_back(static_cast<float>(std::max({std::abs(dx), std::abs(dy), 1})));
    const double aspect = static_cast<double>(inv_fy) / inv_fx;
    layout.q.push_back(static_cast<float>(dx * dx + dy * dy * aspect * aspect));
  };
  const auto pad = [&] {
    while (layout.at.size() % kLanes != 0) add(0, 0, false);
  };
  for (int dy = -half; dy <= half; ++dy)
    for (int dx = -half; dx <= half; ++dx) add(dx, dy, true);
  pad();
  layout.inner = static_cast<int>(layout.at.size());
  for (int dy = -wide; dy <= wide; ++dy)
    for (int dx = -wide; dx <= wide; ++dx)
      if (std::abs(dx) > half || std::abs(dy) > half) add(dx, dy, true);
  pad();
  layout.slots = static_cast<int>(layout.at.size());
  return layout;
}

// A pixel's neighbours in lanes: measured depth, inverse depth relative to the pixel's own (so
// that single precision keeps the plane's small variations), and 1 where the point takes part.
struct Neighbours {
  std::vector<float> depth, w, used, weight, scratch;
  explicit Neighbours(int slots) : depth(slots), w(slots), used(slots), weight(slots), scratch(slots) {}
};

struct Fit {
  double a = 0, b = 0, c = 0;  // relative inverse depth a du + b dv + c
  bool ok = false;
};

// The wide window's two fits about a pixel.
struct WideFit {
  Fit plane;            // ok where the window does not curve
  double centre = 0;    // relative inverse depth at the pixel of the fit with the curvature term
  bool curves = false;  // the two fits' depths at the pixel part by more than their noise
};

LANE_INLINE lane_float lane_select(const lane_int& mask, const lane_float& yes, const lane_float& no) {
  return mask ? yes : no;
}

LANE_INLINE double lane_total(const lane_float& v) {
  double sum = 0;
  for (int l = 0; l < kLanes; ++l) sum += v[l];
  return sum;
}

// Loads the slots of the pixel at `centre` of the bordered image and marks those usable and within
// `tolerance` per pixel of distance of the pixel's own depth b. Returns the numbers marked in the
// small window and in both.
LANE_INLINE void load(const WindowLayout& layout, const float* centre, float b, float w0, float tolerance,
                      float min_depth, float max_depth, Neighbours& n, int& inner, int& count) {
  for (int k = 0; k < layout.slots; ++k) n.depth[k] = centre[layout.at[k]];
  const lane_float lb = lane_splat(b), ltol = lane_splat(tolerance), one = lane_splat(1.0f);
  const lane_float zero = lane_splat(0.0f);
  lane_float inner_used = zero, all_used = zero;
  for (int k = 0; k < layout.slots; k += kLanes) {
    const lane_float d = lane_load(&n.depth[k]);
    const lane_int ok = (lane_load(&layout.slot[k]) > zero) & (lane_fabs(d) <= lane_splat(FLT_MAX)) &
                        (d < lane_splat(max_depth)) & (d > lane_splat(min_depth)) & (d > zero) &
                        (lane_fabs(d - lb) <= ltol * lane_load(&layout.steps[k]));
    const lane_float used = lane_select(ok, one, zero);
    lane_store(&n.used[k], used);
    lane_store(&n.w[k], lane_select(ok, one / lane_select(ok, d, one) - lane_splat(w0), zero));
    all_used += used;
    if (k < layout.inner) inner_used += used;
  }
  inner = static_cast<int>(lane_total(inner_used));
  count = static_cast<int>(lane_total(all_used));
}

// Weighted least squares of the relative inverse depth over the first `slots` slots, with `ridge`
// added to the slopes' diagonal.
LANE_INLINE Fit solve(const WindowLayout& layout, const Neighbours& n, int slots, double ridge, double w0) {
  lane_float S[9] = {};
  for (int k = 0; k < slots; k += kLanes) {
    const lane_float o = lane_load(&n.weight[k]), u = lane_load(&layout.du[k]), v = lane_load(&layout.dv[k]);
    const lane_float w = lane_load(&n.w[k]), ou = o * u, ov = o * v;
    S[0] += ou * u;
    S[1] += ou * v;
    S[2] += ov * v;
    S[3] += ou;
    S[4] += ov;
    S[5] += o;
    S[6] += ou * w;
    S[7] += ov * w;
    S[8] += o * w;
  }
  double s[9];
  for (int t = 0; t < 9; ++t) s[t] = lane_total(S[t]);
  Eigen::Matrix3d m;
  m << s[0] + ridge * s[5], s[1], s[3], s[1], s[2] + ridge * s[5], s[4], s[3], s[4], s[5];
  if (!(std::fabs(m.determinant()) > 0.0)) return {};
  const Eigen::Vector3d x = m.inverse() * Eigen::Vector3d(s[6], s[7], s[8]);
  Fit f;
  f.a = x(0);
  f.b = x(1);
  f.c = x(2);
  f.ok = std::isfinite(f.a) && std::isfinite(f.b) && f.c + w0 > 0.0;
  return f;
}

// The depth distances of the first `slots` slots from the plane along their rays into n.scratch
// (1 where the plane lies behind the camera).
LANE_INLINE void depth_residuals(const WindowLayout& layout, Neighbours& n, int slots, const Fit& fit, float w0) {
  const lane_float a = lane_splat(static_cast<float>(fit.a)), b = lane_splat(static_cast<float>(fit.b));
  const lane_float c = lane_splat(static_cast<float>(fit.c + w0)), zero = lane_splat(0.0f);
  const lane_float one = lane_splat(1.0f);
  for (int k = 0; k < slots; k += kLanes) {
    const lane_float predicted = a * lane_load(&layout.du[k]) + b * lane_load(&layout.dv[k]) + c;
    const lane_int ahead = predicted > zero;
    const lane_float r = lane_fabs(one / lane_select(ahead, predicted, one) - lane_load(&n.depth[k]));
    lane_store(&n.scratch[k], lane_select(ahead, r, one));
  }
}

// Three rounds of least squares over the small window, with weights that fall with the distance
// from the previous fit.
LANE_INLINE Fit robust_fit(const WindowLayout& layout, Neighbours& n, double ridge, float w0) {
  Fit fit;
  std::copy(n.used.begin(), n.used.begin() + layout.inner, n.weight.begin());
  for (int round = 0; round < 3; ++round) {
    fit = solve(layout, n, layout.inner, ridge, w0);
    if (!fit.ok || round == 2) break;
    depth_residuals(layout, n, layout.inner, fit, w0);
    for (int k = 0; k < layout.inner; k += kLanes)
      lane_store(&n.weight[k], lane_select(lane_load(&n.used[k]) > lane_splat(0.0f),
                                           lane_splat(1.0f) / (lane_load(&n.scratch[k]) + lane_splat(0.001f)),
                                           lane_splat(0.0f)));
  }
  return fit;
}

// The robust spread of the small window's measured depths about the plane (a standard deviation
// from their median distance), at least the depth maps' step of a thousandth. The median is the
// distance that as many lie below as not above, found by counting in lanes: without the branches
// of a selection, which mispredict on nearly every comparison.
LANE_INLINE double depth_spread(const WindowLayout& layout, Neighbours& n, const Fit& fit, float w0, int count) {
  depth_residuals(layout, n, layout.inner, fit, w0);
  for (int k = 0; k < layout.inner; k += kLanes)
    lane_store(&n.scratch[k], lane_select(lane_load(&n.used[k]) > lane_splat(0.0f), lane_load(&n.scratch[k]),
                                          lane_splat(FLT_MAX)));
  const int middle = count / 2;
  double median = 0.0;
  for (int i = 0; i < layout.inner; ++i) {
    if (!(n.used[i] > 0.0f)) continue;
    const lane_float r = lane_splat(n.scratch[i]);
    lane_int below = {}, not_above = {};
    for (int k = 0; k < layout.inner; k += kLanes) {
      const lane_float other = lane_load(&n.scratch[k]);
      below -= other < r;  // a true comparison is -1
      not_above -= other <= r;
    }
    int lo = 0, hi = 0;
    for (int l = 0; l < kLanes; ++l) {
      lo += below[l];
      hi += not_above[l];
    }
    if (lo <= middle && middle < hi) {
      median = n.scratch[i];
      break;
    }
  }
  return std::max(1.4826 * median, 0.001);
}

// The wide window's plane, not ok where the window curves: one round of biweights about the small
// window's plane at the spread of single depths (points within it keep nearly full weight, points
// more than 4.685 spreads off none), then the plane and, with the same weights, the plane plus a
// term k (du^2 + dv^2). Over a window symmetric about the pixel that term takes up the offset any
// quadratic surface gives a plane at the pixel, so the two centres part where the surface curves;
// their difference has a standard deviation of about sqrt(2.5 / n) spreads over n points when
// it does not. Where they part, the curved fit's centre is the better depth at the pixel.
LANE_INLINE WideFit wide_plane(const WindowLayout& layout, const Neighbours& n, const Fit& fit, double spread,
                           double ridge, double w0) {
  const lane_float a = lane_splat(static_cast<float>(fit.a)), b = lane_splat(static_cast<float>(fit.b));
  const lane_float c = lane_splat(static_cast<float>(fit.c)), zero = lane_splat(0.0f), one = lane_splat(1.0f);
  const lane_float inv_reach = lane_splat(static_cast<float>(1.0 / (4.685 * spread)));
  // Sums of weight times 1, u, v, uu, uv, vv, w, uw, vw, q, uq, vq, qq, qw.
  lane_float S[14] = {};
  for (int k = 0; k < layout.slots; k += kLanes) {
    const lane_float u = lane_load(&layout.du[k]), v = lane_load(&layout.dv[k]), w = lane_load(&n.w[k]);
    const lane_float d = lane_load(&n.depth[k]), q = lane_load(&layout.q[k]);
    // The depth residual to first order, without a division per point.
    const lane_float r = lane_fabs(a * u + b * v + c - w) * d * d * inv_reach;
    const lane_float r2 = one - r * r;
    const lane_float o = lane_select((r < one) & (lane_load(&n.used[k]) > zero), r2 * r2, zero);
    const lane_float ou = o * u, ov = o * v, oq = o * q;
    S[0] += o;
    S[1] += ou;
    S[2] += ov;
    S[3] += ou * u;
    S[4] += ou * v;
    S[5] += ov * v;
    S[6] += o * w;
    S[7] += ou * w;
    S[8] += ov * w;
    S[9] += oq;
    S[10] += oq * u;
    S[11] += oq * v;
    S[12] += oq * q;
    S[13] += oq * w;
  }
  double s[14];
  for (int t = 0; t < 14; ++t) s[t] = lane_total(S[t]);
  if (!(s[0] >= 4.0)) return {};
  Eigen::Matrix3d m;
  m << s[3] + ridge * s[0], s[4], s[1], s[4], s[5] + ridge * s[0], s[2], s[1], s[2], s[0];
  const Eigen::Vector3d plane = m.inverse() * Eigen::Vector3d(s[7], s[8], s[6]);
  Eigen::Matrix4d m4;
  m4 << s[0], s[1], s[2], s[9], s[1], s[3], s[4], s[10], s[2], s[4], s[5], s[11], s[9], s[10], s[11], s[12];
  const Eigen::Vector4d curved = m4.ldlt().solve(Eigen::Vector4d(s[6], s[7], s[8], s[13]));
  WideFit out;
  out.plane.a = plane(0);
  out.plane.b = plane(1);
  out.plane.c = plane(2);
  out.centre = curved(0);
  if (!(std::isfinite(out.plane.a) && std::isfinite(out.plane.b) && out.plane.c + w0 > 0.0 && out.centre + w0 > 0.0))
    return out;
  out.curves = std::fabs(1.0 / (out.centre + w0) - 1.0 / (out.plane.c + w0)) > 2.0 * spread * std::sqrt(2.5 / s[0]);
  out.plane.ok = !out.curves;
  return out;
}

// What one row needs besides its own outputs.
struct RowInputs {
  const WindowLayout& layout;
  const float* bordered;  // the measured depths with a border of unusable depths, wide enough for the window
  int bordered_width, border;
  float u_origin, v_origin, inv_fx, inv_fy;  // ray coordinates of pixel (0, 0) and their steps
  float footprints, min_depth, max_depth;
  double ridge;
  const float* R;  // camera to world, by columns
};

LANE_KERNEL void fit_row(const RowInputs& in, int y, int width, float* depth_row, float3* normal_row,
                         Neighbours& n) {
  const WindowLayout& layout = in.layout;
  const float* R = in.R;
  const auto to_world = [R](double px, double py, double pz) {
    return make_float3(static_cast<float>(R[0] * px + R[1] * py + R[2] * pz),
                       static_cast<float>(R[3] * px + R[4] * py + R[5] * pz),
                       static_cast<float>(R[6] * px + R[7] * py + R[8] * pz));
  };
  const double v0 = in.v_origin - y * static_cast<double>(in.inv_fy);
  for (int x = 0; x < width; ++x) {
    const float* centre = in.bordered + static_cast<std::size_t>(y + in.border) * in.bordered_width + x + in.border;
    const float b = *centre;
    if (!usable_depth(b, in.min_depth, in.max_depth)) {
      depth_row[x] = 0.0f;
      normal_row[x] = make_float3(0.0f, 0.0f, 0.0f);
      continue;
    }
    const double u0 = in.u_origin - x * static_cast<double>(in.inv_fx);
    const float footprint = b * in.inv_fx, tolerance = in.footprints * footprint;
    const float w0 = 1.0f / b;
    int inner = 0, count = 0;
    load(layout, centre, b, w0, tolerance, in.min_depth, in.max_depth, n, inner, count);
    Fit fit;
    if (inner >= 4) fit = robust_fit(layout, n, in.ridge, w0);
    // Where the small window leaves the depth uncertain by more than a tenth of a footprint, the
    // wide window's plane is taken if it agrees with the small one and the wide window does not
    // curve: a surface that curves or ends within it moves its plane away from the small one's.
    // Where it curves, the plane misses the pixel by the curvature's offset (on the limb of a ball
    // seen obliquely, several millimetres along the ray), and the curved fit's depth stands.
    if (fit.ok && count > inner) {
      // The plane's depth at the pixel is uncertain by the spread over the root of the points' number.
      const double spread = depth_spread(layout, n, fit, w0, inner);
      const double uncertainty = spread / std::sqrt(static_cast<double>(inner));
      if (uncertainty > kWideningUncertainty * footprint) {
        const WideFit wide = wide_plane(layout, n, fit, spread, in.ridge, w0);
        if (wide.plane.ok && std::fabs(1.0 / (wide.plane.c + w0) - 1.0 / (fit.c + w0)) <= 3.0 * uncertainty)
          fit = wide.plane;
        else if (wide.curves)
          fit.c = wide.centre;  // the small plane's slopes, the curved fit's depth
      }
    }
    const float plane_depth = fit.ok ? static_cast<float>(1.0 / (fit.c + w0)) : 0.0f;
    if (fit.ok && std::fabs(plane_depth - b) <= tolerance) {
      // 1 / z = a' u + b' v + c' in absolute ray coordinates; the normal faces the camera.
      const double a = fit.a, bb = fit.b, c = fit.c + w0 - fit.a * u0 - fit.b * v0;
      const double norm = std::sqrt(a * a + bb * bb + c * c);
      depth_row[x] = plane_depth;
      normal_row[x] = to_world(-a / norm, -bb / norm, -c / norm);
    } else {
      const double norm = std::sqrt(u0 * u0 + v0 * v0 + 1.0);
      depth_row[x] = b;
      normal_row[x] = to_world(-u0 / norm, -v0 / norm, -1.0 / norm);
    }
  }
}

}  // namespace

void measured_planes(CMatrix<float>& depth, CMatrix<float3>& normal_map, const CMatrix<float>& measured,
                     const Camera& camera, float footprints, int window, int wide_window, float min_depth,
                     float max_depth) {
  const int width = measured.xSize, height = measured.ySize;
  depth.setSize(width, height);
  normal_map.setSize(width, height);
  const float inv_fx = 1.0f / camera.K[0], inv_fy = 1.0f / camera.K[4];
  const int wide = std::max(window, wide_window);
  // The measured depths inside a border of zeros (never usable), so that every window reads in bounds.
  const int bordered_width = width + 2 * wide;
  std::vector<float> bordered(static_cast<std::size_t>(bordered_width) * (height + 2 * wide), 0.0f);
  for (int y = 0; y < height; ++y)
    std::copy(&measured(0, y), &measured(0, y) + width,
              bordered.begin() + static_cast<std::ptrdiff_t>(y + wide) * bordered_width + wide);
  const WindowLayout layout = window_layout(window, wide, bordered_width, inv_fx, inv_fy);
  // The slope preference: a thousandth of the spread of a window one pixel wide, enough to settle
  // the slope across a line of points and too little to bend the fit where the window is lopsided
  // (at the image border).
  const double ridge = 1e-3 * static_cast<double>(inv_fx) * static_cast<double>(inv_fy);
  // Ray coordinates of pixel (x, y): u = (width - 1 - x - cx) / fx, v likewise.
  const RowInputs in{layout,
                     bordered.data(),
                     bordered_width,
                     wide,
                     (static_cast<float>(width - 1) - camera.K[6]) * inv_fx,
                     (static_cast<float>(height - 1) - camera.K[7]) * inv_fy,
                     inv_fx,
                     inv_fy,
                     footprints,
                     min_depth,
                     max_depth,
                     ridge,
                     camera.R};
#pragma omp parallel
  {
    Neighbours n(layout.slots);
#pragma omp for schedule(dynamic, 4)
    for (int y = 0; y < height; ++y) fit_row(in, y, width, &depth(0, y), &normal_map(0, y), n);
  }
}

void particles_on_measured_planes(std::vector<Particle>& particles, std::vector<float>& offsets,
                                  std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                                  const std::vector<CMatrix<float>>& depthmaps, float min_depth, float max_depth) {
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    const Camera& camera = *cameras[i];
    CMatrix<float> depth;
    CMatrix<float3> normal_map;
    measured_planes(depth, normal_map, depthmaps[i], camera, kMeasuredPlaneFootprints, kMeasuredPlaneWindow,
                    kMeasuredPlaneWideWindow, min_depth, max_depth);
    const std::size_t first = particles.size();
    create_particles_from_depthmap(particles, offsets, normals, depth, normal_map, depth, camera.image, camera,
                                   min_depth, max_depth);
    for (std::size_t k = first; k < particles.size(); ++k) particles[k].init_normal = normals[k];
  }
}
