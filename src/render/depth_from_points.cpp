#include "src/render/depth_from_points.h"

#include <cmath>

#include "device/vector_math.h"
#include "ketra/algorithms/basic.h"
#include "ketra/check_error.h"
#include "ketra/tools.h"
#include "src/render/device_arrays.h"
#include "src/core/back_project.h"
#include "src/render/point_batches.h"
#include "src/render/render_depthmaps_kernels.h"

using namespace render_depthmaps_kernels;

namespace {

void run_visibility_pass(RenderBuffer const& rb, Projection const& proj, Points const& points,
                         float radius_scale) {
  render_launch::for_each_point_batch(points, [&](LaunchShape shape, int block_offset) {
    visibility_pass_kernel(shape, rb, proj, points, radius_scale, block_offset);
  });
}

}  // namespace

void _compute_depthmap_and_normals_from_points(ketra::Array<float, 2>& depth, ketra::Array<float, 3>& normals,
                                               Projection proj, Points const& points, [[maybe_unused]] float ignored,
                                               float radius_scale) {
  ketra::set(depth, empty_depth);
  ketra::set(normals, 0.0f);
  // The two passes touch nothing of the buffer but these.
  RenderBuffer rb{};
  rb.depth = depth;
  rb.normal_sum = normals;
  run_visibility_pass(rb, proj, points, radius_scale);
  render_launch::for_each_point_batch(points, [&](LaunchShape shape, int block_offset) {
    normal_pass_kernel(shape, rb, proj, points, radius_scale, block_offset);
  });
}

float3 unit_normal_or_towards_camera(float3 m, int x, int y, Camera const& camera, float inv_fx, float inv_fy) {
  const float length_m = length(m);
  if (length_m > 1e-6f) return m / length_m;
  const float3 q = back_project(x, y, 1.0f, camera.width, camera.height, camera, inv_fx, inv_fy);
  const float3 to_center = make_float3(camera.center[0], camera.center[1], camera.center[2]) - q;
  return to_center / length(to_center);
}

void compute_depthmap_and_normals_from_points(CMatrix<float>& depth, CMatrix<float3>& normals, Points const& points,
                                              Camera const& camera, float ignored, float near, float far,
                                              float radius_scale) {
  const int W = camera.width, H = camera.height;
  const Projection proj = projection_from_camera(camera, W, H, near, far);
  const float inv_fx = 1.0f / camera.K[0], inv_fy = 1.0f / camera.K[4];
  const auto w = static_cast<unsigned int>(W), h = static_cast<unsigned int>(H);
  ketra::Array<float, 2> depth_device = allocate_pitched<float, 2>(w, h, 1);
  ketra::Array<float, 3> normals_device = allocate_pitched<float, 3>(w, h, 3);
  _compute_depthmap_and_normals_from_points(depth_device, normals_device, proj, points, ignored, radius_scale);

  depth.setSize(W, H);
  normals.setSize(W, H);
  ketra::Array<float, 2> depth_host = ketra::arrayFromHostMemory(depth.data, w, h);
  ketra::arrayCopy(depth_host, depth_device);
  ketra::freeArray(depth_device);

  ketra::Array<float, 4> sums4 = ketra::mallocHostArray<float>(make_uint4(w, h, 3, 1), ketra::Packed);
  ketra::Array<float, 3> sums = ketra::internal::decreaseArrayDimension<float, 4, 3>(sums4);
  ketra::arrayCopy(sums, normals_device);
  ketra::freeArray(normals_device);

  const float* s = sums4.data;
  const std::size_t plane = static_cast<std::size_t>(w) * h;
#pragma omp parallel for schedule(static)
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * w + x;
      normals(x, y) = unit_normal_or_towards_camera(make_float3(s[i], s[plane + i], s[2 * plane + i]), x, y, camera,
                                                    inv_fx, inv_fy);
    }
  ketra::freeArray(sums4);
}

ketra::Array<int, 1> contributing_points(RenderBuffer& rb, Projection proj, Points const& points,
                                         [[maybe_unused]] float ignored, float radius_scale) {
  ketra::Array<int, 1> flags = allocate_pitched<int, 1>(points.positions.extents.x, 1, 1);
  // Cleared, so that a point the passes drop reads as not contributing.
  ketra::set(flags, 0);
  clearRenderBufferEmpty(rb);
  run_visibility_pass(rb, proj, points, radius_scale);
  render_launch::for_each_point_batch(points, [&](LaunchShape shape, int block_offset) {
    contribution_pass_kernel(shape, flags, rb, proj, points, radius_scale, block_offset);
  });
  return flags;
}

std::vector<int> contributing_points(RenderBuffer& rb, Points const& points, Camera const& camera, float ignored,
                                     float near, float far, float radius_scale) {
  const Projection proj = projection_from_camera(camera, static_cast<int>(rb.image.extents.x),
                                                 static_cast<int>(rb.image.extents.y), near, far);
  ketra::Array<int, 1> flags = contributing_points(rb, proj, points, ignored, radius_scale);
  std::vector<int> result(flags.extents.x, 0);
  ketra::vectorCopy(result, flags);
  ketra::freeArray(flags);
  return result;
}

void compute_min_camdistance(ketra::Array<float, 2>& min_distance, Projection proj, Points const& points,
                             ketra::Array<float, 1> const& values, [[maybe_unused]] float ignored,
                             float radius_scale) {
  RenderBuffer rb{};
  rb.depth = allocate_pitched<float, 2>(static_cast<unsigned int>(proj.width), static_cast<unsigned int>(proj.height), 1);
  ketra::set(rb.depth, empty_depth);
  ketra::set(min_distance, empty_depth);
  run_visibility_pass(rb, proj, points, radius_scale);
  render_launch::for_each_point_batch(points, [&](LaunchShape shape, int block_offset) {
    min_camdistance_pass_kernel(shape, min_distance, values, rb, proj, points, radius_scale, block_offset);
  });
  ketra::freeArray(rb.depth);
}
