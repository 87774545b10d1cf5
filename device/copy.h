#pragma once

#include <cstddef>

#include "device/memory.h"

namespace device {

struct TextureArray;

// Direction of a copy. Each side named "device" must lie inside one live allocation (or be a
// texture array); each side named "host" must not be device memory.
enum CopyKind : int {
  CopyHostToHost = 0,
  CopyHostToDevice = 1,
  CopyDeviceToHost = 2,
  CopyDeviceToDevice = 3,
};

// Origin of a copy inside its source or destination: x in bytes for linear memory, in elements
// for texture arrays.
struct Pos {
  std::size_t x = 0, y = 0, z = 0;
};

// A 3-D copy. Exactly one of srcArray / srcPtr.ptr and one of dstArray / dstPtr.ptr is set.
// With linear memory on both sides extent.width is in bytes; when a texture array takes part it
// is in elements. Slices of a pitched pointer lie pitch * ysize bytes apart.
struct Copy3DParams {
  TextureArray* srcArray = nullptr;
  Pos srcPos;
  PitchedPtr srcPtr;
  TextureArray* dstArray = nullptr;
  Pos dstPos;
  PitchedPtr dstPtr;
  Extent extent;
  CopyKind kind = CopyHostToHost;
};

// All copies block the host until done (the executor is synchronous).
Error copy3D(Copy3DParams const& p);
Error copy(void* dst, const void* src, std::size_t bytes, CopyKind kind);
Error copy2D(void* dst, std::size_t dpitch, const void* src, std::size_t spitch, std::size_t width,
             std::size_t height, CopyKind kind);

// Byte fills of device memory.
Error memset(void* ptr, int value, std::size_t bytes);
Error memset3D(PitchedPtr ptr, int value, Extent extent);

}  // namespace device
