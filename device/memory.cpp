#include "device/memory.h"

#include <cstdint>
#include <cstdlib>

#include "device/memory_info.h"
#include "device/registry.h"

namespace device {

namespace {

std::size_t round_up(std::size_t n, std::size_t to) { return (n + to - 1) / to * to; }

bool multiply_fits(std::size_t a, std::size_t b, std::size_t* out) {
  return !__builtin_mul_overflow(a, b, out);
}

// Allocations larger than the machine's memory fail as out of memory instead of reaching the
// system allocator, which keeps failures deterministic (also under sanitizers).
Error allocate_block(void** ptr, std::size_t bytes) {
  std::size_t free_bytes = 0, total_bytes = 0;
  memGetInfo(&free_bytes, &total_bytes);
  if (bytes > total_bytes || bytes > SIZE_MAX - kPitchAlignment) return fail(ErrorMemoryAllocation);
  void* p = std::aligned_alloc(kPitchAlignment, round_up(bytes, kPitchAlignment));
  if (p == nullptr) return fail(ErrorMemoryAllocation);
  detail::registerBlock(p, bytes);
  *ptr = p;
  return Success;
}

}  // namespace

Error getDevice(int* ordinal) {
  if (ordinal == nullptr) return fail(ErrorInvalidValue);
  *ordinal = 0;
  return Success;
}

Error getDeviceCount(int* count) {
  if (count == nullptr) return fail(ErrorInvalidValue);
  *count = 1;
  return Success;
}

Error allocate(void** ptr, std::size_t bytes) {
  if (ptr == nullptr) return fail(ErrorInvalidValue);
  *ptr = nullptr;
  if (bytes == 0) return Success;
  return allocate_block(ptr, bytes);
}

Error allocatePitched(PitchedPtr* ptr, Extent extent) {
  if (ptr == nullptr) return fail(ErrorInvalidValue);
  *ptr = PitchedPtr{nullptr, 0, extent.width, extent.height};
  if (extent.width == 0 || extent.height == 0 || extent.depth == 0) return Success;
  std::size_t pitch = round_up(extent.width, kPitchAlignment);
  std::size_t rows = 0, bytes = 0;
  if (!multiply_fits(extent.height, extent.depth, &rows) || !multiply_fits(rows, pitch, &bytes))
    return fail(ErrorMemoryAllocation);
  void* p = nullptr;
  if (Error e = allocate_block(&p, bytes); e != Success) return e;
  ptr->ptr = p;
  ptr->pitch = pitch;
  return Success;
}

Error release(void* ptr) {
  if (ptr == nullptr) return Success;
  if (!detail::unregisterBlock(ptr)) return fail(ErrorInvalidDevicePointer);
  std::free(ptr);
  return Success;
}

Error reset() {
  for (void* p : detail::takeAllBlocks()) std::free(p);
  detail::releaseAllTextureArrays();
  return Success;
}

Error deviceSynchronize() { return Success; }

bool isDevicePointer(const void* ptr) { return detail::isDeviceRange(ptr, 1); }
bool isDeviceRange(const void* ptr, std::size_t bytes) { return detail::isDeviceRange(ptr, bytes); }
std::size_t liveAllocationCount() { return detail::blockCount(); }
std::size_t liveAllocationBytes() { return detail::blockBytes(); }

}  // namespace device
