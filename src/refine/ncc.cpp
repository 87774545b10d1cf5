#include "src/refine/ncc.h"

#include <cstddef>
#include <stdexcept>
#include <string>

#include "ketra/check_error.h"
#include "ketra/tools.h"
#include "src/refine/depthmap_estimation_kernels.h"
#include "src/render/point_batches.h"

using namespace depthmap_estimation_kernels;

namespace {

// Binds an image for point sampling; the array must start on the texture alignment.
void bind(device::Texture<uchar4, device::ReadMode::NormalizedFloat>& texture, ketra::Array<uchar4, 2> const& a) {
  texture.filter = device::FilterMode::Point;
  std::size_t offset = 0;
  device::bindTexture2D(&offset, texture, a.data, a.extents.x, a.extents.y, a.pitch.y);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  if (offset != 0) throw std::runtime_error("ncc: texture memory does not start on the texture alignment");
}

bool same_size(uint2 a, uint2 b) { return a.x == b.x && a.y == b.y; }

}  // namespace

void ncc(ketra::Array<float, 2>& result, ketra::Array<uchar4, 2> const& reference,
         ketra::Array<uchar4, 2> const& warped, ketra::Array<float, 2> const& depth, float depth_tolerance,
         int window_radius) {
  // The window reads depth and both images at the pixels of result.
  if (!same_size(result.extents, reference.extents) || !same_size(result.extents, warped.extents) ||
      !same_size(result.extents, depth.extents))
    throw std::runtime_error("ncc: arrays of different sizes: result " + ketra::internal::str_extents(result.extents) +
                             ", reference " + ketra::internal::str_extents(reference.extents) + ", warped " +
                             ketra::internal::str_extents(warped.extents) + ", depth " +
                             ketra::internal::str_extents(depth.extents));
  bind(image1_tex, reference);
  bind(image2_tex, warped);
  const LaunchShape shape = render_launch::pixel_shape(result.extents.x, result.extents.y);
  switch (window_radius) {
    case 1: ncc_kernel<1>(shape, result, depth, depth_tolerance); break;
    case 2: ncc_kernel<2>(shape, result, depth, depth_tolerance); break;
    case 3: ncc_kernel<3>(shape, result, depth, depth_tolerance); break;
    default: throw std::runtime_error("ncc: window size not supported");
  }
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::unbindTexture(image1_tex);
  device::unbindTexture(image2_tex);
}
