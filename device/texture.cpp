#include "device/texture.h"

#include <cstdint>

#include "device/memory.h"

namespace device::detail {

Error checkBind2D(std::size_t* offset, const void* ptr, std::size_t width, std::size_t height,
                  std::size_t pitch, std::size_t element_size, bool linear_on_integers) {
  if (offset == nullptr || ptr == nullptr || width == 0 || height == 0) return ErrorInvalidValue;
  if (linear_on_integers) return ErrorInvalidTexture;
  if (pitch < width * element_size || pitch % element_size != 0) return ErrorInvalidPitchValue;
  if (!isDeviceRange(ptr, (height - 1) * pitch + width * element_size)) return ErrorInvalidValue;
  *offset = reinterpret_cast<std::uintptr_t>(ptr) % kPitchAlignment;
  return Success;
}

Error checkBindArray(const TextureArray* array, ChannelFormatDesc const& expected, bool linear_on_integers) {
  if (!isTextureArray(array)) return ErrorInvalidResourceHandle;
  if (linear_on_integers) return ErrorInvalidTexture;
  if (!(array->desc == expected)) return ErrorInvalidChannelDescriptor;
  return Success;
}

}  // namespace device::detail
