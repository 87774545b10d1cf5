#include "src/pose/pose_system.h"

#include <cstddef>
#include <stdexcept>
#include <string>

#include "device/copy.h"
#include "device/texture.h"
#include "device/texture_array.h"
#include "ketra/check_error.h"
#include "ketra/tools.h"
#include "src/pose/camera_estimation_kernels.h"
#include "src/render/point_batches.h"

using namespace camera_estimation_kernels;

namespace {

// Every array of a call covers the same pixels; a smaller one would be read beyond its end.
template <class T, int N>
void check_covers(std::string const& function, char const* name, ketra::Array<T, N> const& a, uint2 pixels,
                  unsigned int min_planes = 1) {
  const unsigned int planes = ketra::internal::component(a.extents, 2);
  if (a.extents.x == pixels.x && a.extents.y == pixels.y && planes >= min_planes) return;
  throw std::runtime_error(function + ": '" + name + "' has extents " + ketra::internal::str_extents(a.extents) +
                           ", expected " + std::to_string(pixels.x) + " x " + std::to_string(pixels.y) +
                           " pixels" + (min_planes > 1 ? " and " + std::to_string(min_planes) + " planes" : ""));
}

uint2 pixels_of(ketra::Array<float, 3> const& a) { return make_uint2(a.extents.x, a.extents.y); }

}  // namespace

void convertToFloat(ketra::Array<float, 3>& out, ketra::Array<uchar4, 2> const& in) {
  check_covers("convertToFloat", "out", out, in.extents, 3);
  convert_to_float_kernel(render_launch::pixel_shape(out.extents.x, out.extents.y), out, in);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

void computeDifferenceImage(ketra::Array<float, 3>& out, ketra::Array<uchar4, 2> const& real,
                            ketra::Array<uchar4, 2> const& rendered, ketra::Array<float, 2> const& depth,
                            float threshold, Projection const& delta, float inv_fx, float inv_fy, float cx, float cy) {
  check_covers("computeDifferenceImage", "out", out, depth.extents, 3);
  check_covers("computeDifferenceImage", "rendered", rendered, depth.extents);
  real_image_tex.filter = device::FilterMode::Linear;
  std::size_t offset = 0;
  device::bindTexture2D(&offset, real_image_tex, real.data, real.extents.x, real.extents.y, real.pitch.y);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  if (offset != 0) throw std::runtime_error("computeDifferenceImage: texture offset is not 0");
  difference_image_kernel(render_launch::pixel_shape(out.extents.x, out.extents.y), out, rendered, depth, threshold,
                          delta, inv_fx, inv_fy, cx, cy);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::unbindTexture(real_image_tex);
}

void computeGradientPsi(ketra::Array<float, 3>& out, ketra::Array<float, 3> const& gradients,
                        ketra::Array<float, 2> const& depth, Projection const& delta, float inv_fx, float inv_fy,
                        float cx, float cy) {
  check_covers("computeGradientPsi", "out", out, depth.extents, 18);
  check_covers("computeGradientPsi", "gradients", gradients, depth.extents, 6);
  device::TextureArray* layers = nullptr;
  const device::ChannelFormatDesc desc = device::createChannelDesc(32, 0, 0, 0, device::ChannelKindFloat);
  device::allocateArray3D(&layers, &desc,
                          device::makeExtent(gradients.extents.x, gradients.extents.y, gradients.extents.z),
                          device::kArrayLayered);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  ketra::arrayCopy(layers, gradients);
  image_gradient_tex.filter = device::FilterMode::Linear;
  device::bindTextureToArray(image_gradient_tex, layers);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  gradient_psi_kernel(render_launch::pixel_shape(out.extents.x, out.extents.y), out, depth, delta, inv_fx, inv_fy,
                      cx, cy);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::unbindTexture(image_gradient_tex);
  device::releaseArray(layers);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

void computeDepthResidual(ketra::Array<float, 3>& out, ketra::Array<float, 2> const& depth,
                          ketra::Array<float, 3> const& normal_sum, MeasuredDepth const& measured,
                          Projection const& delta, float inv_fx, float inv_fy, float cx, float cy, float threshold,
                          float weight) {
  check_covers("computeDepthResidual", "out", out, depth.extents, 7);
  check_covers("computeDepthResidual", "normal_sum", normal_sum, depth.extents, 3);
  depth_residual_kernel(render_launch::pixel_shape(out.extents.x, out.extents.y), out, depth, normal_sum, measured,
                        delta, inv_fx, inv_fy, cx, cy, threshold, weight);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

unsigned int setNANtoZero(ketra::Array<float, 3>& system, ketra::Array<uchar4, 2> validity,
                          ketra::Array<float, 2>& depth) {
  check_covers("setNANtoZero", "depth", depth, pixels_of(system));
  if (validity.data != nullptr) check_covers("setNANtoZero", "validity", validity, pixels_of(system));
  // The counter is a module variable in ordinary memory: host copies stand in for the runtime's
  // symbol address, fill and read-back.
  const unsigned int zero = 0;
  device::copy(&d_invalid_pixel_count, &zero, sizeof(zero), device::CopyHostToHost);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  set_nan_to_zero_kernel(render_launch::pixel_shape(system.extents.x, system.extents.y), system, validity, depth);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  unsigned int count = 0;
  device::copy(&count, &d_invalid_pixel_count, sizeof(count), device::CopyHostToHost);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  return count;
}
