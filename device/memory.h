#pragma once

#include <cstddef>

#include "device/error.h"

namespace device {

// Row pitches of pitched allocations are padded to a multiple of this many bytes, and every
// allocation starts on such a boundary, so that pitched and packed layouts really differ.
constexpr std::size_t kPitchAlignment = 256;

// A pitched pointer: `pitch` bytes from one row to the next, rows of `xsize` useful bytes,
// `ysize` rows per slice (slices follow each other every pitch * ysize bytes).
struct PitchedPtr {
  void* ptr = nullptr;
  std::size_t pitch = 0;
  std::size_t xsize = 0;
  std::size_t ysize = 0;
};

// Size of a 3-D region: width in bytes for linear memory (in elements for texture arrays),
// height in rows, depth in slices.
struct Extent {
  std::size_t width = 0;
  std::size_t height = 0;
  std::size_t depth = 0;
};

inline PitchedPtr makePitchedPtr(void* p, std::size_t pitch, std::size_t xsize, std::size_t ysize) {
  return {p, pitch, xsize, ysize};
}
inline Extent makeExtent(std::size_t w, std::size_t h, std::size_t d) { return {w, h, d}; }

// The one device of this layer has ordinal 0.
Error getDevice(int* ordinal);
Error getDeviceCount(int* count);

// Linear allocation of `bytes` bytes. Zero bytes give a null pointer and success.
Error allocate(void** ptr, std::size_t bytes);

// Pitched allocation of extent.height * extent.depth rows of extent.width bytes, each row padded
// to a multiple of kPitchAlignment.
Error allocatePitched(PitchedPtr* ptr, Extent extent);

// Releases a block made by allocate or allocatePitched. Null is accepted and does nothing.
Error release(void* ptr);

// Releases every live allocation and texture array: the end of the device context.
Error reset();

// Waits for all work of all streams; the executor is synchronous, so this only checks state.
Error deviceSynchronize();

// Registry queries. A device range is valid when it lies inside one live allocation.
bool isDevicePointer(const void* ptr);
bool isDeviceRange(const void* ptr, std::size_t bytes);
std::size_t liveAllocationCount();
std::size_t liveAllocationBytes();

}  // namespace device
