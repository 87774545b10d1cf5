#include "src/render/render_depthmap.h"

#include <cstddef>
#include <stdexcept>

#include "ketra/algorithms/basic.h"
#include "ketra/check_error.h"
#include "ketra/timer.h"
#include "src/render/matrix4.h"
#include "src/render/point_batches.h"
#include "src/render/render_depthmaps_kernels.h"

using namespace render_depthmaps_kernels;

void render_depthmap(RenderBuffer& rb, float inv_fx, float inv_fy, float cx, float cy, Projection relative,
                     ketra::Array<float, 2> const& depth, ketra::Array<uchar4, 2> const& image, float spacing) {
  // One thread per source pixel: far below any grid limit, so no batches.
  const LaunchShape source_pixels = render_launch::pixel_shape(depth.extents.x, depth.extents.y);
  ketra::timer::start("rendering");
  clearRenderBufferEmpty(rb);

  ketra::timer::start("visibility");
  visibility_pass_kernel(source_pixels, rb, inv_fx, inv_fy, cx, cy, relative, depth, spacing);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  ketra::timer::stop("visibility");

  ketra::timer::start("attributes");
  attribute_pass_kernel(source_pixels, rb, inv_fx, inv_fy, cx, cy, relative, depth, image, spacing);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  ketra::timer::stop("attributes");

  ketra::timer::start("shading");
  shading_pass_kernel(render_launch::pixel_shape(rb.depth.extents.x, rb.depth.extents.y), rb);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  ketra::timer::stop("shading");
  ketra::timer::stop("rendering");
}

Projection relative_projection(Camera const& source, Camera const& target, int width, int height, float near,
                               float far) {
  Matrix4 source_inverse;
  if (!invert(pose_matrix(source), source_inverse))
    throw std::runtime_error("relative_projection: the pose of the source camera cannot be inverted");
  const Matrix4 relative = multiply(pose_matrix(target), source_inverse);
  Projection proj = projection_from_camera(target, width, height, near, far);
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) proj.R[3 * r + c] = relative.m[4 * r + c];
    proj.t[r] = relative.m[4 * r + 3];
  }
  return proj;
}

void render_depthmap(RenderBuffer& rb, ketra::Array<float, 2> const& depth, ketra::Array<uchar4, 2> const& image,
                     Camera const& source, Camera const& target, float near, float far, float spacing) {
  const Projection relative = relative_projection(source, target, static_cast<int>(rb.image.extents.x),
                                                  static_cast<int>(rb.image.extents.y), near, far);
  render_depthmap(rb, 1.0f / source.K[0], 1.0f / source.K[4], source.K[6], source.K[7], relative, depth, image,
                  spacing);
}

namespace {

// Binds a texture to a 2-D device array; the array must start on the texture alignment.
template <class T, device::ReadMode R>
void bind(device::Texture<T, R>& texture, device::FilterMode filter, ketra::Array<T, 2> const& a) {
  texture.filter = filter;
  std::size_t offset = 0;
  device::bindTexture2D(&offset, texture, a.data, a.extents.x, a.extents.y, a.pitch.y);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  if (offset != 0)
    throw std::runtime_error("project_texture_on_depthmap: texture memory does not start on the texture alignment");
}

}  // namespace

void project_texture_on_depthmap(ketra::Array<uchar4, 2>& out, float inv_fx, float inv_fy, float cx, float cy,
                                 Projection relative, ketra::Array<float, 2> const& depth,
                                 ketra::Array<float, 2> const& target_depth,
                                 ketra::Array<uchar4, 2> const& target_image, float tolerance, float offset) {
  ketra::set(out, make_uchar4(0, 0, 0, 0));
  bind(tex_image, device::FilterMode::Linear, target_image);
  bind(tex_depth, device::FilterMode::Point, target_depth);
  project_texture_kernel(render_launch::pixel_shape(out.extents.x, out.extents.y), out, inv_fx, inv_fy, cx, cy,
                         relative, depth, tolerance, offset);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::unbindTexture(tex_image);
  device::unbindTexture(tex_depth);
}
