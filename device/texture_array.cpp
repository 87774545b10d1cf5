#include "device/texture_array.h"

#include <cstdlib>
#include <mutex>
#include <set>

#include "device/registry.h"

namespace device {

namespace {

struct ArrayRegistry {
  std::mutex mutex;
  std::set<TextureArray*> arrays;
};

ArrayRegistry& arrays() {
  static ArrayRegistry r;
  return r;
}

bool valid_bits(int b) { return b == 0 || b == 8 || b == 16 || b == 32; }

}  // namespace

ChannelFormatDesc createChannelDesc(int x, int y, int z, int w, ChannelKind f) { return {x, y, z, w, f}; }

std::size_t channelElementSize(ChannelFormatDesc const& d) {
  if (d.f == ChannelKindNone || d.x <= 0) return 0;
  if (!valid_bits(d.x) || !valid_bits(d.y) || !valid_bits(d.z) || !valid_bits(d.w)) return 0;
  if (d.f != ChannelKindSigned && d.f != ChannelKindUnsigned && d.f != ChannelKindFloat) return 0;
  return static_cast<std::size_t>(d.x + d.y + d.z + d.w) / 8;
}

Error allocateArray(TextureArray** array, ChannelFormatDesc const* desc, std::size_t width,
                    std::size_t height) {
  return allocateArray3D(array, desc, Extent{width, height, 0}, kArrayDefault);
}

Error allocateArray3D(TextureArray** array, ChannelFormatDesc const* desc, Extent extent, unsigned flags) {
  if (array == nullptr || desc == nullptr) return fail(ErrorInvalidValue);
  std::size_t element = channelElementSize(*desc);
  if (element == 0) return fail(ErrorInvalidChannelDescriptor);
  if (flags != kArrayDefault && flags != kArrayLayered) return fail(ErrorInvalidValue);
  if (extent.width == 0 || ((flags & kArrayLayered) && extent.depth == 0)) return fail(ErrorInvalidValue);
  std::size_t rows = (extent.height ? extent.height : 1) * (extent.depth ? extent.depth : 1);
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(rows, extent.width * element, &bytes)) return fail(ErrorMemoryAllocation);
  void* storage = nullptr;
  if (Error e = allocate(&storage, bytes); e != Success) return e;
  auto* a = new TextureArray{*desc, extent, flags, element, static_cast<unsigned char*>(storage)};
  ArrayRegistry& r = arrays();
  std::lock_guard lock(r.mutex);
  r.arrays.insert(a);
  *array = a;
  return Success;
}

Error releaseArray(TextureArray* array) {
  if (array == nullptr) return Success;
  {
    ArrayRegistry& r = arrays();
    std::lock_guard lock(r.mutex);
    if (r.arrays.erase(array) == 0) return fail(ErrorInvalidResourceHandle);
  }
  release(array->data);
  delete array;
  return Success;
}

Error arrayGetInfo(ChannelFormatDesc* desc, Extent* extent, unsigned* flags, TextureArray* array) {
  if (!isTextureArray(array)) return fail(ErrorInvalidResourceHandle);
  if (desc) *desc = array->desc;
  if (extent) *extent = array->extent;
  if (flags) *flags = array->flags;
  return Success;
}

bool isTextureArray(const TextureArray* array) {
  ArrayRegistry& r = arrays();
  std::lock_guard lock(r.mutex);
  return r.arrays.count(const_cast<TextureArray*>(array)) == 1;
}

namespace detail {

// The storage of the arrays has already gone with the allocations; only the records remain.
void releaseAllTextureArrays() {
  ArrayRegistry& r = arrays();
  std::lock_guard lock(r.mutex);
  for (TextureArray* a : r.arrays) delete a;
  r.arrays.clear();
}

}  // namespace detail

}  // namespace device
