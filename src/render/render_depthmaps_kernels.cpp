#include "src/render/render_depthmaps_kernels.h"

#include <climits>
#include <cmath>

#include "device/atomics.h"
#include "device/vector_math.h"
#include "ketra/access.h"
#include "src/core/simd_lanes.h"

device::Texture<uchar4, device::ReadMode::NormalizedFloat> tex_image;
device::Texture<float> tex_depth;

namespace render_depthmaps_kernels {

namespace {

using ketra::element;

// Float to int as the device converts: toward zero, saturating, NaN to 0.
HOST_DEVICE inline int to_int(float f) {
  if (f != f) return 0;
  if (f <= -2147483648.0f) return INT_MIN;
  if (f >= 2147483648.0f) return INT_MAX;
  return static_cast<int>(f);
}

// Float to unsigned int the same way; the callers keep the low byte.
HOST_DEVICE inline unsigned int to_uint(float f) {
  if (!(f > 0.0f)) return 0u;
  if (f >= 4294967296.0f) return UINT_MAX;
  return static_cast<unsigned int>(f);
}

HOST_DEVICE inline unsigned char low_byte(float f) { return static_cast<unsigned char>(to_uint(f) & 0xffu); }

// A texture channel in 0..1 back to a byte: times 255 in double, truncated.
HOST_DEVICE inline unsigned char channel_byte(float c) {
  const double v = static_cast<double>(c) * 255.0;
  return v > 0.0 ? static_cast<unsigned char>(v < 255.0 ? v : 255.0) : 0;
}

HOST_DEVICE inline float rsqrt(float x) { return 1.0f / std::sqrt(x); }

HOST_DEVICE inline float3 rotate(Projection const& proj, float3 v) {
  const float* R = proj.R;
  return {R[0] * v.x + R[1] * v.y + R[2] * v.z, R[3] * v.x + R[4] * v.y + R[5] * v.z,
          R[6] * v.x + R[7] * v.y + R[8] * v.z};
}

HOST_DEVICE inline float3 transform(Projection const& proj, float3 v) {
  const float3 r = rotate(proj, v);
  return {r.x + proj.t[0], r.y + proj.t[1], r.z + proj.t[2]};
}

// Gaussian of the squared disk radius with sigma 0.3; the constant cancels in the shading.
HOST_DEVICE inline float splat_weight(float rho2) {
  const float C = 1.0f / (0.3f * std::sqrt(0.63661975f));
  return C * std::exp(-0.5f * rho2 / 0.09f);
}

enum class Cull {
  View,  // drop disks whose front does not face the ray to their centre: dot(pc, nc) >= 0
  Axis,  // drop disks whose normal does not point against the optical axis: nc.z >= 0
};

enum class Splat {
  Dropped,   // culled, outside the depth window or with an empty box
  Finished,  // every pixel of the box was visited
  Stopped,   // the action asked to stop at a pixel
};

// Rasterises the disk of radius r at pc with unit normal nc, both in the camera frame of proj.
// action(tx, ty, z, rho2) runs at each covered pixel, with the array index (tx, ty), the depth of
// the ray's hit on the disk's plane and the squared radius of the hit in disk units; it returns
// true to stop. A NaN from a ray parallel to the plane counts as covered.
template <Cull cull, class Action>
HOST_DEVICE Splat splat_disk(Projection const& proj, float3 pc, float3 nc, float r, Action&& action) {
  if (cull == Cull::View ? dot(pc, nc) >= 0.0f : nc.z >= 0.0f) return Splat::Dropped;
  if (pc.z <= proj.near || pc.z >= proj.far) return Splat::Dropped;

  const float u = (pc.x * proj.fx) / pc.z + proj.cx;
  const float v = (pc.y * proj.fy) / pc.z + proj.cy;
  // Box of the disk's circle seen head-on, which encloses the tilted disk too.
  const float h = r / pc.z;
  const float hx = h * proj.fx, hy = h * proj.fy;
  const int x0 = to_int(std::floor(std::fmax(u - hx, 0.0f)));
  const int y0 = to_int(std::floor(std::fmax(v - hy, 0.0f)));
  const int x1 = to_int(std::ceil(std::fmin(u + hx, static_cast<float>(proj.width - 1))));
  const int y1 = to_int(std::ceil(std::fmin(v + hy, static_cast<float>(proj.height - 1))));
  if (x0 > x1 || y0 > y1) return Splat::Dropped;

  // Tangent frame from the smallest component of the normal (strict comparisons).
  const float ax = std::fabs(nc.x), ay = std::fabs(nc.y), az = std::fabs(nc.z);
  float3 a;
  if (ax < ay && ax < az)
    a = make_float3(0.0f, -nc.z, nc.y);
  else if (ay < ax && ay < az)
    a = make_float3(-nc.z, 0.0f, nc.x);
  else
    a = make_float3(-nc.y, nc.x, 0.0f);
  a = a * rsqrt(dot(a, a));
  const float3 b = cross(nc, a);
  const float3 A = r * a, B = r * b, Wv = cross(A, B);
  // The ray d = ((x-cx)/fx, (y-cy)/fy, 1) meets the plane at depth k / dot(Wv, d), at disk
  // coordinates dot(E, d) / dot(Wv, d) and dot(F, d) / dot(Wv, d).
  const float k = dot(pc, Wv);
  const float3 E = cross(B, pc), F = cross(pc, A);

  // Columns are taken eight at a time: each lane computes exactly the expressions of one pixel, so
  // every bit is kept, while the divisions, most of the cost, run side by side.
  const lane_float first = lane_float{0, 1, 2, 3, 4, 5, 6, 7} + static_cast<float>(x0);
  for (int y = y0; y <= y1; ++y) {
    const float dy = (static_cast<float>(y) - proj.cy) / proj.fy;
    // The parts of the three dot products that depend on the row only.
    const float row_w = Wv.y * dy + Wv.z, row_e = E.y * dy + E.z, row_f = F.y * dy + F.z;
    const int ty = proj.height - 1 - y;
    for (int xc = x0; xc <= x1; xc += kLanes) {
      const lane_float dx = (first + static_cast<float>(xc - x0) - proj.cx) / proj.fx;
      const lane_float den = Wv.x * dx + row_w;
      const lane_float s = (E.x * dx + row_e) / den;
      const lane_float q = (F.x * dx + row_f) / den;
      const lane_float rho2 = s * s + q * q;
      const int n = x1 - xc + 1 < kLanes ? x1 - xc + 1 : kLanes;
      for (int j = 0; j < n; ++j) {
        if (rho2[j] > 1.0f) continue;
        if (action(proj.width - 1 - (xc + j), ty, k / den[j], rho2[j])) return Splat::Stopped;
      }
    }
  }
  return Splat::Finished;
}

// One particle in the frame of proj: world normal n, camera-frame position and normal, radius.
struct PointSample {
  float3 n, pc, nc;
  float r0;
};

HOST_DEVICE inline PointSample load_point(Points const& points, Projection const& proj, int i) {
  const float3 p = make_float3(element(points.positions, i, 0), element(points.positions, i, 1),
                               element(points.positions, i, 2));
  const float3 n =
      make_float3(element(points.normals, i, 0), element(points.normals, i, 1), element(points.normals, i, 2));
  return {n, transform(proj, p), rotate(proj, n), element(points.radii, i)};
}

// Element of a point-pass thread, or -1 beyond the points.
HOST_DEVICE inline int point_index(device::Index const& idx, int block_offset, Points const& points) {
  const unsigned long long i =
      (static_cast<unsigned long long>(idx.block.x) + static_cast<unsigned long long>(block_offset)) *
          idx.blockDim.x +
      idx.thread.x;
  return i < points.positions.extents.x ? static_cast<int>(i) : -1;
}

// The additions of an attribute pass at one pixel: colour bytes, camera-frame normal and weight.
HOST_DEVICE inline void add_attributes(RenderBuffer const& rb, int tx, int ty, uchar4 c, float3 nc, float w) {
  device::atomicAdd(&element(rb.color_sum, tx, ty, 0), static_cast<float>(c.x) * w);
  device::atomicAdd(&element(rb.color_sum, tx, ty, 1), static_cast<float>(c.y) * w);
  device::atomicAdd(&element(rb.color_sum, tx, ty, 2), static_cast<float>(c.z) * w);
  device::atomicAdd(&element(rb.color_sum, tx, ty, 3), static_cast<float>(c.w) * w);
  device::atomicAdd(&element(rb.normal_sum, tx, ty, 0), nc.x * w);
  device::atomicAdd(&element(rb.normal_sum, tx, ty, 1), nc.y * w);
  device::atomicAdd(&element(rb.normal_sum, tx, ty, 2), nc.z * w);
  device::atomicAdd(&element(rb.weight_sum, tx, ty), w);
}

HOST_DEVICE void visibility_pass(device::Index const& idx, RenderBuffer const& rb, Projection const& proj,
                                 Points const& points, float radius_scale, int block_offset) {
  const int i = point_index(idx, block_offset, points);
  if (i < 0) return;
  const PointSample s = load_point(points, proj, i);
  splat_disk<Cull::View>(proj, s.pc, s.nc, s.r0 * radius_scale, [&](int tx, int ty, float z, float) {
    device::atomicMin(&element(rb.depth, tx, ty), z);
    return false;
  });
}

// The attribute pass (colour, camera-frame normal and weight) or, with `world_normals`, the normal
// pass (world normal alone): weighted sums where the disk lies less than its radius behind rb.depth.
template <bool world_normals>
HOST_DEVICE void weighted_pass(device::Index const& idx, RenderBuffer const& rb, Projection const& proj,
                               Points const& points, float radius_scale, int block_offset) {
  const int i = point_index(idx, block_offset, points);
  if (i < 0) return;
  const PointSample s = load_point(points, proj, i);
  const uchar4 c = world_normals ? uchar4{} : element(points.colors, i);
  splat_disk<Cull::Axis>(proj, s.pc, s.nc, s.r0 * radius_scale, [&](int tx, int ty, float z, float rho2) {
    if (z - s.r0 >= element(rb.depth, tx, ty)) return false;
    const float w = splat_weight(rho2);
    if (!world_normals) {
      add_attributes(rb, tx, ty, c, s.nc, w);
      return false;
    }
    device::atomicAdd(&element(rb.normal_sum, tx, ty, 0), s.n.x * w);
    device::atomicAdd(&element(rb.normal_sum, tx, ty, 1), s.n.y * w);
    device::atomicAdd(&element(rb.normal_sum, tx, ty, 2), s.n.z * w);
    return false;
  });
}

HOST_DEVICE void contribution_pass(device::Index const& idx, ketra::Array<int, 1> const& flags,
                                   RenderBuffer const& rb, Projection const& proj, Points const& points,
                                   float radius_scale, int block_offset) {
  const int i = point_index(idx, block_offset, points);
  if (i < 0) return;
  const PointSample s = load_point(points, proj, i);
  // Stops at the first pixel where the disk is not more than its radius behind the surface.
  const Splat result = splat_disk<Cull::Axis>(proj, s.pc, s.nc, s.r0 * radius_scale,
                                              [&](int tx, int ty, float z, float) {
                                                return !(z - s.r0 >= element(rb.depth, tx, ty));
                                              });
  if (result != Splat::Dropped) element(flags, i) = result == Splat::Stopped ? 1 : 0;
}

HOST_DEVICE void min_camdistance_pass(device::Index const& idx, ketra::Array<float, 2> const& min_distance,
                                      ketra::Array<float, 1> const& values, RenderBuffer const& rb,
                                      Projection const& proj, Points const& points, float radius_scale,
                                      int block_offset) {
  const int i = point_index(idx, block_offset, points);
  if (i < 0) return;
  const PointSample s = load_point(points, proj, i);
  splat_disk<Cull::View>(proj, s.pc, s.nc, s.r0 * radius_scale, [&](int tx, int ty, float z, float) {
    if (z - s.r0 >= element(rb.depth, tx, ty)) return false;
    device::atomicMin(&element(min_distance, tx, ty), element(values, i) + s.r0);
    return false;
  });
}

// Pixel (x, y) of a pixel pass, or false when the thread lies beyond the extents.
HOST_DEVICE inline bool pixel_of(device::Index const& idx, uint2 extents, int& x, int& y) {
  x = idx.x();
  y = idx.y();
  return x < static_cast<int>(extents.x) && y < static_cast<int>(extents.y);
}

HOST_DEVICE void shading_pass(device::Index const& idx, RenderBuffer const& rb) {
  int x, y;
  if (!pixel_of(idx, rb.depth.extents, x, y)) return;
  const float w = element(rb.weight_sum, x, y);
  if (w == 0.0f) return;
  element(rb.image, x, y) =
      make_uchar4(low_byte(element(rb.color_sum, x, y, 0) / w), low_byte(element(rb.color_sum, x, y, 1) / w),
                  low_byte(element(rb.color_sum, x, y, 2) / w), low_byte(element(rb.color_sum, x, y, 3) / w));
}

HOST_DEVICE void shading_pass_normal(device::Index const& idx, RenderBuffer const& rb) {
  int x, y;
  if (!pixel_of(idx, rb.depth.extents, x, y)) return;
  if (element(rb.weight_sum, x, y) == 0.0f) return;
  float3 m = make_float3(element(rb.normal_sum, x, y, 0), element(rb.normal_sum, x, y, 1),
                         element(rb.normal_sum, x, y, 2));
  m = m * rsqrt(dot(m, m));
  // Blue carries the square of x: a fixed part of this encoding.
  element(rb.image, x, y) = make_uchar4(low_byte(127.5f - 127.5f * m.z), low_byte(127.5f + 127.5f * m.y),
                                        low_byte(127.5f + 127.5f * m.x * m.x), 255);
}

// Source pixel (x, y) with depth d seen from the target: the back-projected point and the
// normal towards the source camera in the target frame, and the disk radius.
struct DepthSample {
  float3 pc, nc;
  float r;
};

// Camera-frame point of source array pixel (x, y) at depth d; the array is mirrored in both axes.
HOST_DEVICE inline float3 back_project(int x, int y, float d, uint2 extents, float inv_fx, float inv_fy, float cx,
                                       float cy) {
  const float a = (static_cast<float>(static_cast<int>(extents.x) - 1 - x) - cx) * inv_fx;
  const float b = (static_cast<float>(static_cast<int>(extents.y) - 1 - y) - cy) * inv_fy;
  return make_float3(a * d, b * d, d);
}

HOST_DEVICE inline DepthSample load_depth_pixel(ketra::Array<float, 2> const& depth, int x, int y, float inv_fx,
                                                float inv_fy, float cx, float cy, Projection const& relative,
                                                float spacing) {
  const float d = element(depth, x, y);
  const float3 P = back_project(x, y, d, depth.extents, inv_fx, inv_fy, cx, cy);
  const float3 n = -P * rsqrt(dot(P, P));
  // 0.6 * sqrt(2) pixel sizes at depth d: neighbouring disks overlap.
  const float r = static_cast<float>(static_cast<double>(spacing) * 0.6 * 1.4142135623730951 *
                                     static_cast<double>(inv_fx) * static_cast<double>(d));
  return {transform(relative, P), rotate(relative, n), r};
}

HOST_DEVICE void depthmap_visibility_pass(device::Index const& idx, RenderBuffer const& rb, float inv_fx,
                                          float inv_fy, float cx, float cy, Projection const& relative,
                                          ketra::Array<float, 2> const& depth, float spacing) {
  int x, y;
  if (!pixel_of(idx, depth.extents, x, y)) return;
  const DepthSample s = load_depth_pixel(depth, x, y, inv_fx, inv_fy, cx, cy, relative, spacing);
  splat_disk<Cull::Axis>(relative, s.pc, s.nc, s.r, [&](int tx, int ty, float z, float) {
    device::atomicMin(&element(rb.depth, tx, ty), z);
    return false;
  });
}

HOST_DEVICE void depthmap_attribute_pass(device::Index const& idx, RenderBuffer const& rb, float inv_fx,
                                         float inv_fy, float cx, float cy, Projection const& relative,
                                         ketra::Array<float, 2> const& depth, ketra::Array<uchar4, 2> const& image,
                                         float spacing) {
  int x, y;
  if (!pixel_of(idx, depth.extents, x, y)) return;
  const DepthSample s = load_depth_pixel(depth, x, y, inv_fx, inv_fy, cx, cy, relative, spacing);
  const uchar4 c = element(image, x, y);
  const float tolerance = 0.9f * s.r;
  splat_disk<Cull::Axis>(relative, s.pc, s.nc, s.r, [&](int tx, int ty, float z, float rho2) {
    if (z - tolerance >= element(rb.depth, tx, ty)) return false;
    add_attributes(rb, tx, ty, c, s.nc, splat_weight(rho2));
    return false;
  });
}

HOST_DEVICE void project_texture(device::Index const& idx, ketra::Array<uchar4, 2> const& out, float inv_fx,
                                 float inv_fy, float cx, float cy, Projection const& relative,
                                 ketra::Array<float, 2> const& depth, float tolerance, float offset) {
  int x, y;
  if (!pixel_of(idx, out.extents, x, y)) return;
  if (x >= static_cast<int>(depth.extents.x) || y >= static_cast<int>(depth.extents.y)) return;
  const float d = element(depth, x, y) + offset;
  if (d >= relative.far || d <= relative.near || !(std::fabs(d) <= 3.4028235e38f)) return;
  const float3 pc = transform(relative, back_project(x, y, d, depth.extents, inv_fx, inv_fy, cx, cy));
  if (pc.z <= relative.near || pc.z >= relative.far) return;
  const float u = (pc.x * relative.fx) / pc.z + relative.cx;
  const float v = (pc.y * relative.fy) / pc.z + relative.cy;
  // Mirrored by the source's size, limited by the target's.
  const float tu = static_cast<float>(static_cast<int>(depth.extents.x) - 1) - u;
  const float tv = static_cast<float>(static_cast<int>(depth.extents.y) - 1) - v;
  if (!(tu > 0.0f && tu < static_cast<float>(relative.width - 1) && tv > 0.0f &&
        tv < static_cast<float>(relative.height - 1)))
    return;
  const float zt = device::tex2D(tex_depth, tu + 0.5f, tv + 0.5f);
  if (!(pc.z - tolerance <= zt + offset)) {
    element(out, x, y) = make_uchar4(0, 200, 0, 0);  // hidden in the target view
    return;
  }
  const float4 c = device::tex2D(tex_image, tu + 0.5f, tv + 0.5f);
  element(out, x, y) = make_uchar4(channel_byte(c.x), channel_byte(c.y), channel_byte(c.z), 255);
}

}  // namespace

void visibility_pass_kernel(LaunchShape shape, RenderBuffer rb, Projection proj, Points points, float radius_scale,
                            int block_offset) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    visibility_pass(idx, rb, proj, points, radius_scale, block_offset);
  });
}

void attribute_pass_kernel(LaunchShape shape, RenderBuffer rb, Projection proj, Points points, float radius_scale,
                           int block_offset) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    weighted_pass<false>(idx, rb, proj, points, radius_scale, block_offset);
  });
}

void normal_pass_kernel(LaunchShape shape, RenderBuffer rb, Projection proj, Points points, float radius_scale,
                        int block_offset) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    weighted_pass<true>(idx, rb, proj, points, radius_scale, block_offset);
  });
}

void contribution_pass_kernel(LaunchShape shape, ketra::Array<int, 1> flags, RenderBuffer rb, Projection proj,
                              Points points, float radius_scale, int block_offset) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    contribution_pass(idx, flags, rb, proj, points, radius_scale, block_offset);
  });
}

void min_camdistance_pass_kernel(LaunchShape shape, ketra::Array<float, 2> min_distance,
                                 ketra::Array<float, 1> values, RenderBuffer rb, Projection proj, Points points,
                                 float radius_scale, int block_offset) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    min_camdistance_pass(idx, min_distance, values, rb, proj, points, radius_scale, block_offset);
  });
}

void shading_pass_kernel(LaunchShape shape, RenderBuffer rb) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) { shading_pass(idx, rb); });
}

void shading_pass_normal_kernel(LaunchShape shape, RenderBuffer rb) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) { shading_pass_normal(idx, rb); });
}

void visibility_pass_kernel(LaunchShape shape, RenderBuffer rb, float inv_fx, float inv_fy, float cx, float cy,
                            Projection relative, ketra::Array<float, 2> depth, float spacing) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    depthmap_visibility_pass(idx, rb, inv_fx, inv_fy, cx, cy, relative, depth, spacing);
  });
}

void attribute_pass_kernel(LaunchShape shape, RenderBuffer rb, float inv_fx, float inv_fy, float cx, float cy,
                           Projection relative, ketra::Array<float, 2> depth, ketra::Array<uchar4, 2> image,
                           float spacing) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    depthmap_attribute_pass(idx, rb, inv_fx, inv_fy, cx, cy, relative, depth, image, spacing);
  });
}

void project_texture_kernel(LaunchShape shape, ketra::Array<uchar4, 2> out, float inv_fx, float inv_fy, float cx,
                            float cy, Projection relative, ketra::Array<float, 2> depth, float tolerance,
                            float offset) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    project_texture(idx, out, inv_fx, inv_fy, cx, cy, relative, depth, tolerance, offset);
  });
}

}  // namespace render_depthmaps_kernels
