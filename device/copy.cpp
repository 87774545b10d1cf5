#include "device/copy.h"

#include <cstring>

#include "device/texture_array.h"

namespace device {

namespace {

bool mul(std::size_t a, std::size_t b, std::size_t* out) { return !__builtin_mul_overflow(a, b, out); }
bool add(std::size_t a, std::size_t b, std::size_t* out) { return !__builtin_add_overflow(a, b, out); }

// One side of a copy resolved to a base address, a row pitch and a slice pitch.
struct Side {
  unsigned char* base = nullptr;
  std::size_t pitch = 0;
  std::size_t slice = 0;
};

// Checks one linear side and resolves it. `row_bytes` is the width of the copy in bytes.
Error linear_side(PitchedPtr const& p, Pos const& pos, Extent const& e, std::size_t row_bytes,
                  bool on_device, Side* side) {
  std::size_t row_end = 0;
  if (!add(pos.x, row_bytes, &row_end) || row_end > p.pitch) return ErrorInvalidPitchValue;
  if ((e.depth > 1 || pos.z > 0) && (pos.y + e.height > p.ysize)) return ErrorInvalidValue;
  // Byte offsets of the first and one past the last byte touched.
  std::size_t first_row = 0, last_row = 0, first = 0, end = 0, slice = 0;
  if (!mul(p.pitch, p.ysize, &slice)) return ErrorInvalidValue;
  if (!mul(pos.z, p.ysize, &first_row) || !add(first_row, pos.y, &first_row)) return ErrorInvalidValue;
  if (!mul(pos.z + e.depth - 1, p.ysize, &last_row) || !add(last_row, pos.y + e.height - 1, &last_row))
    return ErrorInvalidValue;
  if (!mul(first_row, p.pitch, &first) || !add(first, pos.x, &first)) return ErrorInvalidValue;
  if (!mul(last_row, p.pitch, &end) || !add(end, row_end, &end)) return ErrorInvalidValue;
  auto* base = static_cast<unsigned char*>(p.ptr);
  if (on_device) {
    if (!isDeviceRange(base, end)) return ErrorInvalidValue;
  } else if (isDevicePointer(base + first)) {
    return ErrorInvalidValue;
  }
  *side = Side{base + first, p.pitch, slice};
  return Success;
}

// Checks one texture-array side (always device memory) and resolves it.
Error array_side(TextureArray* a, Pos const& pos, Extent const& e, bool on_device, Side* side) {
  if (!on_device || !isTextureArray(a)) return ErrorInvalidValue;
  std::size_t height = a->extent.height ? a->extent.height : 1;
  std::size_t depth = a->extent.depth ? a->extent.depth : 1;
  if (pos.x + e.width > a->extent.width || pos.y + e.height > height || pos.z + e.depth > depth)
    return ErrorInvalidValue;
  std::size_t pitch = a->extent.width * a->element_size;
  std::size_t slice = pitch * height;
  *side = Side{a->data + pos.z * slice + pos.y * pitch + pos.x * a->element_size, pitch, slice};
  return Success;
}

bool src_on_device(CopyKind k) { return k == CopyDeviceToHost || k == CopyDeviceToDevice; }
bool dst_on_device(CopyKind k) { return k == CopyHostToDevice || k == CopyDeviceToDevice; }

Error check_and_copy(Copy3DParams const& p) {
  if ((p.srcArray != nullptr) == (p.srcPtr.ptr != nullptr)) return ErrorInvalidValue;
  if ((p.dstArray != nullptr) == (p.dstPtr.ptr != nullptr)) return ErrorInvalidValue;
  if (p.kind < CopyHostToHost || p.kind > CopyDeviceToDevice) return ErrorInvalidMemcpyDirection;
  if (p.extent.width == 0 || p.extent.height == 0 || p.extent.depth == 0) return Success;

  // With a texture array involved the width counts elements of that array.
  std::size_t element = 1;
  if (p.srcArray && p.dstArray && p.srcArray->element_size != p.dstArray->element_size)
    return ErrorInvalidValue;
  if (p.srcArray) element = p.srcArray->element_size;
  if (p.dstArray) element = p.dstArray->element_size;
  std::size_t row_bytes = 0;
  if (!mul(p.extent.width, element, &row_bytes)) return ErrorInvalidValue;

  Side src, dst;
  Error e = p.srcArray ? array_side(p.srcArray, p.srcPos, p.extent, src_on_device(p.kind), &src)
                       : linear_side(p.srcPtr, p.srcPos, p.extent, row_bytes, src_on_device(p.kind), &src);
  if (e != Success) return e;
  e = p.dstArray ? array_side(p.dstArray, p.dstPos, p.extent, dst_on_device(p.kind), &dst)
                 : linear_side(p.dstPtr, p.dstPos, p.extent, row_bytes, dst_on_device(p.kind), &dst);
  if (e != Success) return e;

  for (std::size_t z = 0; z < p.extent.depth; ++z)
    for (std::size_t y = 0; y < p.extent.height; ++y)
      std::memmove(dst.base + z * dst.slice + y * dst.pitch, src.base + z * src.slice + y * src.pitch, row_bytes);
  return Success;
}

}  // namespace

Error copy3D(Copy3DParams const& p) {
  Error e = check_and_copy(p);
  return e == Success ? Success : fail(e);
}

Error copy(void* dst, const void* src, std::size_t bytes, CopyKind kind) {
  if (bytes == 0) return Success;
  return copy2D(dst, bytes, src, bytes, bytes, 1, kind);
}

Error copy2D(void* dst, std::size_t dpitch, const void* src, std::size_t spitch, std::size_t width,
             std::size_t height, CopyKind kind) {
  if (width == 0 || height == 0) return Success;
  if (dst == nullptr || src == nullptr) return fail(ErrorInvalidValue);
  Copy3DParams p;
  p.srcPtr = PitchedPtr{const_cast<void*>(src), spitch, width, height};
  p.dstPtr = PitchedPtr{dst, dpitch, width, height};
  p.extent = Extent{width, height, 1};
  p.kind = kind;
  return copy3D(p);
}

Error memset(void* ptr, int value, std::size_t bytes) {
  if (bytes == 0) return Success;
  if (!isDeviceRange(ptr, bytes)) return fail(ErrorInvalidValue);
  std::memset(ptr, value, bytes);
  return Success;
}

Error memset3D(PitchedPtr p, int value, Extent e) {
  if (e.width == 0 || e.height == 0 || e.depth == 0) return Success;
  if (p.ptr == nullptr) return fail(ErrorInvalidValue);
  Side side;
  if (Error err = linear_side(p, Pos{}, e, e.width, true, &side); err != Success) return fail(err);
  for (std::size_t z = 0; z < e.depth; ++z)
    for (std::size_t y = 0; y < e.height; ++y)
      std::memset(side.base + z * side.slice + y * side.pitch, value, e.width);
  return Success;
}

}  // namespace device
