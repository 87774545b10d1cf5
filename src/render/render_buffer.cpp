#include "src/render/render_buffer.h"

#include "device/copy.h"
#include "ketra/algorithms/basic.h"
#include "ketra/check_error.h"
#include "ketra/tools.h"
#include "src/render/device_arrays.h"

namespace {

// Zeroes every element of a pitched device array byte by byte.
template <class T, int N>
void zero_bytes(ketra::Array<T, N> const& a) {
  const ketra::Array<T, 4> a4 = ketra::internal::as4D(a);
  const std::size_t row_bytes = a4.extents.x * sizeof(T);
  device::memset3D(device::makePitchedPtr(a4.data, a4.pitch.y, row_bytes, a4.extents.y), 0,
                   device::makeExtent(row_bytes, a4.extents.y, a4.extents.z * a4.extents.w));
}

}  // namespace

RenderBuffer createRenderBuffer(int width, int height) {
  // Negative sizes wrap to huge extents and fail in the allocator, like the device runtime would.
  const auto w = static_cast<unsigned int>(width), h = static_cast<unsigned int>(height);
  RenderBuffer rb;
  rb.image = allocate_pitched<uchar4, 2>(w, h, 1);
  rb.depth = allocate_pitched<float, 2>(w, h, 1);
  rb.color_sum = allocate_pitched<float, 3>(w, h, 4);
  rb.normal_sum = allocate_pitched<float, 3>(w, h, 3);
  rb.weight_sum = allocate_pitched<float, 2>(w, h, 1);
  return rb;
}

void clearRenderBuffer(RenderBuffer& rb, uchar4 color, float depth) {
  ketra::set(rb.image, color);
  ketra::set(rb.depth, depth);
  zero_bytes(rb.color_sum);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  zero_bytes(rb.normal_sum);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  zero_bytes(rb.weight_sum);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

void clearRenderBufferEmpty(RenderBuffer& rb) { clearRenderBuffer(rb, make_uchar4(0, 0, 0, 0), empty_depth); }

void freeRenderBuffer(RenderBuffer& rb) {
  ketra::freeArray(rb.image);
  ketra::freeArray(rb.depth);
  ketra::freeArray(rb.color_sum);
  ketra::freeArray(rb.normal_sum);
  ketra::freeArray(rb.weight_sum);
}
