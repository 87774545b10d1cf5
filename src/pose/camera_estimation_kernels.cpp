#include "src/pose/camera_estimation_kernels.h"

#include <cmath>
#include <limits>

#include "device/atomics.h"
#include "device/launch.h"
#include "ketra/access.h"
#include "src/render/render_buffer.h"

device::Texture<uchar4, device::ReadMode::NormalizedFloat> real_image_tex;
device::Texture<float> image_gradient_tex;
unsigned int d_invalid_pixel_count;

namespace camera_estimation_kernels {

namespace {

using ketra::element;

constexpr float quiet_nan = std::numeric_limits<float>::quiet_NaN();

// Pixel (x, y) of a pixel pass, or false when the thread lies beyond the extents.
template <class T, int N>
HOST_DEVICE inline bool pixel_of(device::Index const& idx, ketra::Array<T, N> const& a, int& x, int& y) {
  x = idx.x();
  y = idx.y();
  return x < static_cast<int>(a.extents.x) && y < static_cast<int>(a.extents.y);
}

// The warp of one pixel: the back-projected point p in the frame the depth was rendered in, the
// moved point c, and the texture coordinates of the mirrored projection.
struct Warp {
  float3 p, c;
  float su, sv;
};

HOST_DEVICE inline float3 rotate(Projection const& proj, float3 v) {
  const float* R = proj.R;
  return {R[0] * v.x + R[1] * v.y + R[2] * v.z, R[3] * v.x + R[4] * v.y + R[5] * v.z,
          R[6] * v.x + R[7] * v.y + R[8] * v.z};
}

// False when the pixel has no surface or its point projects outside the level; c.z is not
// tested, so a point behind the camera may still land inside.
HOST_DEVICE inline bool warp_pixel(ketra::Array<float, 2> const& depth, int x, int y, Projection const& delta,
                                   float inv_fx, float inv_fy, float cx, float cy, Warp& w) {
  const float d = element(depth, x, y);
  if (d == empty_depth) return false;
  const int W = static_cast<int>(depth.extents.x), H = static_cast<int>(depth.extents.y);
  w.p = make_float3((static_cast<float>(W - 1 - x) - cx) * inv_fx * d,
                    (static_cast<float>(H - 1 - y) - cy) * inv_fy * d, d);
  const float3 r = rotate(delta, w.p);
  w.c = make_float3(r.x + delta.t[0], r.y + delta.t[1], r.z + delta.t[2]);
  const float u = (w.c.x * delta.fx) / w.c.z + delta.cx;
  const float v = (w.c.y * delta.fy) / w.c.z + delta.cy;
  if (u < 0.0f || u > static_cast<float>(delta.width - 1) || v < 0.0f || v > static_cast<float>(delta.height - 1))
    return false;
  w.su = static_cast<float>(delta.width - 1) - u + 0.5f;
  w.sv = static_cast<float>(delta.height - 1) - v + 0.5f;
  return true;
}

// The pixel of a residual or Jacobian thread and its warp. False when the thread has nothing more
// to write: it lies beyond out, or its pixel has no warp and got the NaN in out's first plane.
HOST_DEVICE inline bool warped_pixel(device::Index const& idx, ketra::Array<float, 3> const& out,
                                     ketra::Array<float, 2> const& depth, Projection const& delta, float inv_fx,
                                     float inv_fy, float cx, float cy, int& x, int& y, Warp& w) {
  if (!pixel_of(idx, out, x, y)) return false;
  if (warp_pixel(depth, x, y, delta, inv_fx, inv_fy, cx, cy, w)) return true;
  element(out, x, y, 0) = quiet_nan;
  return false;
}

HOST_DEVICE void convert_to_float(device::Index const& idx, ketra::Array<float, 3> const& out,
                                  ketra::Array<uchar4, 2> const& in) {
  int x, y;
  if (!pixel_of(idx, out, x, y)) return;
  const uchar4 c = element(in, x, y);
  element(out, x, y, 0) = static_cast<float>(c.x / 255.0);
  element(out, x, y, 1) = static_cast<float>(c.y / 255.0);
  element(out, x, y, 2) = static_cast<float>(c.z / 255.0);
}

HOST_DEVICE void difference_image(device::Index const& idx, ketra::Array<float, 3> const& out,
                                  ketra::Array<uchar4, 2> const& rendered, ketra::Array<float, 2> const& depth,
                                  float threshold, Projection const& delta, float inv_fx, float inv_fy, float cx,
                                  float cy) {
  int x, y;
  Warp w;
  if (!warped_pixel(idx, out, depth, delta, inv_fx, inv_fy, cx, cy, x, y, w)) return;
  const float4 real = device::tex2D(real_image_tex, w.su, w.sv);
  const uchar4 r = element(rendered, x, y);
  const float e0 = static_cast<float>(real.x - r.x / 255.0);
  const float e1 = static_cast<float>(real.y - r.y / 255.0);
  const float e2 = static_cast<float>(real.z - r.z / 255.0);
  if (std::sqrt(e0 * e0 + e1 * e1 + e2 * e2) > threshold) {
    element(out, x, y, 0) = quiet_nan;  // an outlier: occlusion, a missing surface or a wrong colour
    return;
  }
  element(out, x, y, 0) = e0;
  element(out, x, y, 1) = e1;
  element(out, x, y, 2) = e2;
}

HOST_DEVICE void gradient_psi(device::Index const& idx, ketra::Array<float, 3> const& out,
                              ketra::Array<float, 2> const& depth, Projection const& delta, float inv_fx, float inv_fy,
                              float cx, float cy) {
  int x, y;
  Warp w;
  if (!warped_pixel(idx, out, depth, delta, inv_fx, inv_fy, cx, cy, x, y, w)) return;
  float gx[3], gy[3];
  for (int c = 0; c < 3; ++c) {
    gx[c] = device::tex2DLayered(image_gradient_tex, w.su, w.sv, c);
    gy[c] = device::tex2DLayered(image_gradient_tex, w.su, w.sv, 3 + c);
  }
  const float3 p = w.p, q = w.c;
  const float fx = delta.fx, fy = delta.fy, zz = q.z * q.z;
  // Derivatives of the mirrored image coordinates u' = (W-1) - u, v' = (H-1) - v. Rotations:
  // the motion of p under a unit rotation about each axis, (0, -p.z, p.y), (p.z, 0, -p.x),
  // (-p.y, p.x, 0), turned by delta's R.
  const float3 rates[3] = {make_float3(0.0f, -p.z, p.y), make_float3(p.z, 0.0f, -p.x),
                           make_float3(-p.y, p.x, 0.0f)};
  float du[6], dv[6];
  for (int k = 0; k < 3; ++k) {
    const float3 d = rotate(delta, rates[k]);
    du[k] = -fx * (d.x * q.z - q.x * d.z) / zz;
    dv[k] = -fy * (d.y * q.z - q.y * d.z) / zz;
  }
  du[3] = -fx / q.z;
  dv[3] = 0.0f;
  du[4] = 0.0f;
  dv[4] = -fy / q.z;
  du[5] = fx * q.x / zz;
  dv[5] = fy * q.y / zz;
  for (int k = 0; k < 6; ++k)
    for (int c = 0; c < 3; ++c) element(out, x, y, 3 * k + c) = du[k] * gx[c] + dv[k] * gy[c];
}

// A measured depth that can take part: positive and not the empty marker.
HOST_DEVICE inline bool usable_measurement(float d) { return d > 0.0f && d < empty_depth; }

HOST_DEVICE void depth_residual(device::Index const& idx, ketra::Array<float, 3> const& out,
                                ketra::Array<float, 2> const& depth, ketra::Array<float, 3> const& normal_sum,
                                MeasuredDepth const& m, Projection const& delta, float inv_fx, float inv_fy, float cx,
                                float cy, float threshold, float weight) {
  int x, y;
  Warp w;
  if (!warped_pixel(idx, out, depth, delta, inv_fx, inv_fy, cx, cy, x, y, w)) return;
  const float3 sum = make_float3(element(normal_sum, x, y, 0), element(normal_sum, x, y, 1),
                                 element(normal_sum, x, y, 2));
  const float sum_length = std::sqrt(sum.x * sum.x + sum.y * sum.y + sum.z * sum.z);
  // The measured map at full size, where the moved model point lands (array coordinates are
  // mirrored), read bilinearly from four depths that must all be there and agree.
  const float3 c = w.c;
  const int W = static_cast<int>(m.depth.extents.x), H = static_cast<int>(m.depth.extents.y);
  const float ax = static_cast<float>(W - 1) - ((c.x * m.fx) / c.z + m.cx);
  const float ay = static_cast<float>(H - 1) - ((c.y * m.fy) / c.z + m.cy);
  const float fx0 = std::floor(ax), fy0 = std::floor(ay);
  if (!(sum_length > 1e-6f) || !(c.z > 0.0f) || !(fx0 >= 0.0f && fy0 >= 0.0f) ||
      !(fx0 < static_cast<float>(W - 1) && fy0 < static_cast<float>(H - 1))) {
    element(out, x, y, 0) = quiet_nan;
    return;
  }
  const int x0 = static_cast<int>(fx0), y0 = static_cast<int>(fy0);
  const float d00 = element(m.depth, x0, y0), d10 = element(m.depth, x0 + 1, y0);
  const float d01 = element(m.depth, x0, y0 + 1), d11 = element(m.depth, x0 + 1, y0 + 1);
  const float lo = std::fmin(std::fmin(d00, d10), std::fmin(d01, d11));
  const float hi = std::fmax(std::fmax(d00, d10), std::fmax(d01, d11));
  const float footprint = lo / m.fx;
  if (!usable_measurement(lo) || !usable_measurement(hi) || hi - lo > threshold * footprint) {
    element(out, x, y, 0) = quiet_nan;
    return;
  }
  const float sx = ax - fx0, sy = ay - fy0;
  const float d = (1.0f - sy) * ((1.0f - sx) * d00 + sx * d10) + sy * ((1.0f - sx) * d01 + sx * d11);
  // The measured point lies on the ray of c, at depth d.
  const float3 n = rotate(delta, make_float3(sum.x / sum_length, sum.y / sum_length, sum.z / sum_length));
  const float along = 1.0f - d / c.z;
  const float distance = (n.x * c.x + n.y * c.y + n.z * c.z) * along / footprint;
  if (!(std::fabs(distance) <= threshold)) {
    element(out, x, y, 0) = quiet_nan;
    return;
  }
  const float scale = weight / footprint;
  element(out, x, y, 0) = weight * distance;
  const float3 p = w.p;
  const float3 rates[3] = {make_float3(0.0f, -p.z, p.y), make_float3(p.z, 0.0f, -p.x),
                           make_float3(-p.y, p.x, 0.0f)};
  for (int k = 0; k < 3; ++k) {
    const float3 r = rotate(delta, rates[k]);
    element(out, x, y, 1 + k) = scale * (n.x * r.x + n.y * r.y + n.z * r.z);
  }
  element(out, x, y, 4) = scale * n.x;
  element(out, x, y, 5) = scale * n.y;
  element(out, x, y, 6) = scale * n.z;
}

HOST_DEVICE void set_nan_to_zero(device::Index const& idx, ketra::Array<float, 3> const& system,
                                 ketra::Array<uchar4, 2> const& validity, ketra::Array<float, 2> const& depth) {
  int x, y;
  if (!pixel_of(idx, system, x, y)) return;
  const int planes = static_cast<int>(system.extents.z);
  uchar4 colour = make_uchar4(0, 200, 0, 1);
  for (int z = 0; z < planes; z += 3) {
    if (std::isfinite(element(system, x, y, z))) continue;
    // The row of this pixel drops out of both products.
    for (int zero = 0; zero < planes; ++zero) element(system, x, y, zero) = 0.0f;
    device::atomicAdd(&d_invalid_pixel_count, 1u);
    colour = element(depth, x, y) != empty_depth ? make_uchar4(200, 0, 0, 1) : make_uchar4(0, 0, 0, 1);
    break;
  }
  if (validity.data != nullptr) element(validity, x, y) = colour;
}

}  // namespace

void convert_to_float_kernel(LaunchShape shape, ketra::Array<float, 3> out, ketra::Array<uchar4, 2> in) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) { convert_to_float(idx, out, in); });
}

void difference_image_kernel(LaunchShape shape, ketra::Array<float, 3> out, ketra::Array<uchar4, 2> rendered,
                             ketra::Array<float, 2> depth, float threshold, Projection delta, float inv_fx,
                             float inv_fy, float cx, float cy) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    difference_image(idx, out, rendered, depth, threshold, delta, inv_fx, inv_fy, cx, cy);
  });
}

void gradient_psi_kernel(LaunchShape shape, ketra::Array<float, 3> out, ketra::Array<float, 2> depth,
                         Projection delta, float inv_fx, float inv_fy, float cx, float cy) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    gradient_psi(idx, out, depth, delta, inv_fx, inv_fy, cx, cy);
  });
}

void depth_residual_kernel(LaunchShape shape, ketra::Array<float, 3> out, ketra::Array<float, 2> depth,
                           ketra::Array<float, 3> normal_sum, MeasuredDepth measured, Projection delta, float inv_fx,
                           float inv_fy, float cx, float cy, float threshold, float weight) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    depth_residual(idx, out, depth, normal_sum, measured, delta, inv_fx, inv_fy, cx, cy, threshold, weight);
  });
}

void set_nan_to_zero_kernel(LaunchShape shape, ketra::Array<float, 3> system, ketra::Array<uchar4, 2> validity,
                            ketra::Array<float, 2> depth) {
  device::launch(shape.grid, shape.block,
                 [=](device::Index const& idx) { set_nan_to_zero(idx, system, validity, depth); });
}

}  // namespace camera_estimation_kernels
