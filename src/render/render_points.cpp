#include "src/render/render_points.h"

#include "ketra/check_error.h"
#include "ketra/timer.h"
#include "src/render/point_batches.h"
#include "src/render/render_depthmaps_kernels.h"

using namespace render_depthmaps_kernels;

void render_points(RenderBuffer& rb, Projection proj, Points const& points, [[maybe_unused]] float ignored,
                   float radius_scale) {
  ketra::timer::start("rendering");
  clearRenderBufferEmpty(rb);

  // The attribute pass tests against the finished depth, so every visibility batch runs first.
  ketra::timer::start("visibility");
  render_launch::for_each_point_batch(points, [&](LaunchShape shape, int block_offset) {
    visibility_pass_kernel(shape, rb, proj, points, radius_scale, block_offset);
  });
  ketra::timer::stop("visibility");

  ketra::timer::start("attributes");
  render_launch::for_each_point_batch(points, [&](LaunchShape shape, int block_offset) {
    attribute_pass_kernel(shape, rb, proj, points, radius_scale, block_offset);
  });
  ketra::timer::stop("attributes");

  ketra::timer::start("shading");
  shading_pass_kernel(render_launch::pixel_shape(proj.width, proj.height), rb);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  ketra::timer::stop("shading");
  ketra::timer::stop("rendering");
}

void render_points(RenderBuffer& rb, Points const& points, Camera const& camera, float ignored, float near, float far,
                   float radius_scale) {
  const Projection proj = projection_from_camera(camera, static_cast<int>(rb.image.extents.x),
                                                 static_cast<int>(rb.image.extents.y), near, far);
  render_points(rb, proj, points, ignored, radius_scale);
}

void shade_normals(RenderBuffer& rb) {
  shading_pass_normal_kernel(render_launch::pixel_shape(rb.image.extents.x, rb.image.extents.y), rb);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}
