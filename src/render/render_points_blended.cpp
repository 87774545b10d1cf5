#include "src/render/render_points_blended.h"

#include "ketra/algorithms/basic.h"
#include "ketra/check_error.h"
#include "src/render/point_batches.h"
#include "src/render/render_depthmaps_kernels.h"

using namespace render_depthmaps_kernels;

void render_points_blended(RenderBuffer& rb, ketra::Array<float, 2>& depth_sum, Projection proj,
                           Points const& points, float tolerance_scale) {
  clearRenderBufferEmpty(rb);
  ketra::set(depth_sum, 0.0f);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  render_launch::for_each_point_batch(points, [&](LaunchShape shape, int block_offset) {
    visibility_pass_kernel(shape, rb, proj, points, 1.0f, block_offset);
  });
  render_launch::for_each_point_batch(points, [&](LaunchShape shape, int block_offset) {
    blended_attribute_pass_kernel(shape, rb, depth_sum, proj, points, tolerance_scale, block_offset);
  });
  const LaunchShape pixels = render_launch::pixel_shape(proj.width, proj.height);
  shading_pass_kernel(pixels, rb);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  blended_depth_pass_kernel(pixels, rb, depth_sum);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}
