#include "ketra/tools.h"

#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "device/copy.h"
#include "device/memory.h"

namespace ketra {

// last = -1 stands for the end of the dimension, so it may follow a first of 0 or less.
Range::Range(int first_, int last_) : first(first_), last(last_) {
  if (last == -1 ? first > 0 : first > last) {
    std::ostringstream s;
    s << "Range(): the first element must be <= than the last element." << " first = " << first
      << ",  last = " << last << "\n";
    throw std::runtime_error(s.str());
  }
}

namespace internal {

namespace {

template <class V>
std::string join_extents(V const& e, int n) {
  std::ostringstream s;
  s << "(";
  for (int d = 0; d < n; ++d) s << (d ? ", " : "") << component(e, d);
  s << ")";
  return s.str();
}

uint4 packed_pitches(uint4 e, std::size_t element_size) {
  auto s = static_cast<unsigned int>(element_size);
  return make_uint4(s, e.x * s, e.x * e.y * s, e.x * e.y * e.z * s);
}

bool any_zero(uint4 e) { return e.x == 0 || e.y == 0 || e.z == 0 || e.w == 0; }

// Kernels address with 32-bit byte offsets, so an array must span less than 4 GiB.
std::size_t checked_bytes(std::size_t row_bytes, uint4 e, char const* function) {
  unsigned __int128 bytes = static_cast<unsigned __int128>(row_bytes) * e.y * e.z * e.w;
  if (bytes >= (static_cast<unsigned __int128>(1) << 32))
    throw std::runtime_error(std::string(function) + ": array spans 4 GiB or more " + str_extents(e));
  return static_cast<std::size_t>(bytes);
}

// True when the planes of a 4-D view are not laid out for one 3-D copy.
bool incompatible_layout(Bytes const& a) {
  return static_cast<unsigned long long>(a.pitch.z) > static_cast<unsigned long long>(a.extents.y) * a.pitch.y ||
         static_cast<unsigned long long>(a.pitch.w) > static_cast<unsigned long long>(a.pitch.z) * a.extents.z;
}

device::PitchedPtr pitched_ptr(Bytes const& a, std::size_t element_size) {
  return device::makePitchedPtr(a.data, a.pitch.y, a.extents.x * element_size, a.extents.y);
}

}  // namespace

std::string str_extents(uint1 const& e) { return join_extents(e, 1); }
std::string str_extents(uint2 const& e) { return join_extents(e, 2); }
std::string str_extents(uint3 const& e) { return join_extents(e, 3); }
std::string str_extents(uint4 const& e) { return join_extents(e, 4); }

std::string str_cudaChannelFormatDesc(device::ChannelFormatDesc const& d) {
  char const* kind = "cudaChannelFormatKindNone";
  switch (d.f) {
    case device::ChannelKindSigned: kind = "cudaChannelFormatKindSigned"; break;
    case device::ChannelKindUnsigned: kind = "cudaChannelFormatKindUnsigned"; break;
    case device::ChannelKindFloat: kind = "cudaChannelFormatKindFloat"; break;
    case device::ChannelKindNone: kind = "cudaChannelFormatKindNone"; break;
  }
  std::ostringstream s;
  s << "(f=" << kind << ", " << "x=" << d.x << ", " << "y=" << d.y << ", " << "z=" << d.z << ", " << "w=" << d.w
    << ")";
  return s.str();
}

Bytes mallocHostBytes(uint4 extents, MemLayout layout, std::size_t element_size) {
  if (any_zero(extents)) throw std::runtime_error("ketra::mallocHostArray: all extents must be >= 1");
  if (layout == Pitched) throw std::runtime_error("ketra::mallocHostArray: unsupported memory layout");
  std::size_t bytes = checked_bytes(extents.x * element_size, extents, "ketra::mallocHostArray");
  return Bytes{static_cast<unsigned char*>(std::malloc(bytes)), packed_pitches(extents, element_size), extents, -1};
}

Bytes mallocDeviceBytes(uint4 extents, MemLayout layout, std::size_t element_size) {
  if (any_zero(extents)) throw std::runtime_error("ketra::mallocDeviceArray: all extents must be >= 1");
  if (layout != Pitched && layout != Packed)
    throw std::runtime_error("ketra::mallocDeviceArray: unsupported memory layout");
  Bytes a;
  device::getDevice(&a.device);
  a.extents = extents;
  if (layout == Pitched) {
    // The span check uses the padded row pitch that the allocation will have.
    std::size_t row_bytes = extents.x * element_size;
    std::size_t padded = (row_bytes + device::kPitchAlignment - 1) / device::kPitchAlignment * device::kPitchAlignment;
    checked_bytes(padded, extents, "ketra::mallocDeviceArray");
    device::PitchedPtr p;
    device::allocatePitched(&p, device::makeExtent(row_bytes, extents.y, static_cast<std::size_t>(extents.z) * extents.w));
    _CHECK_CUDA_ERROR(__FILE__, __LINE__);
    auto row = static_cast<unsigned int>(p.pitch);
    a.data = static_cast<unsigned char*>(p.ptr);
    a.pitch = make_uint4(static_cast<unsigned int>(element_size), row, extents.y * row, extents.y * row * extents.z);
  } else {
    std::size_t bytes = checked_bytes(extents.x * element_size, extents, "ketra::mallocDeviceArray");
    void* p = nullptr;
    device::allocate(&p, bytes);
    _CHECK_CUDA_ERROR(__FILE__, __LINE__);
    a.data = static_cast<unsigned char*>(p);
    a.pitch = packed_pitches(extents, element_size);
  }
  return a;
}

void freeMemory(void* data, int device) {
  if (device == -1)
    std::free(data);
  else
    device::release(data);
}

void throwCannotDecrease(int source_dimension, int target_dimension, std::string const& extents) {
  std::ostringstream s;
  s << "decreaseArrayDimension: Cannot decrease source array dimension." << "\n"
    << " source dimension is " << source_dimension << " " << " target dimension is " << target_dimension << ". "
    << " source array extents are " << extents;
  throw std::runtime_error(s.str());
}

void arrayCopyBytes(Bytes const& dst, Bytes const& src, std::size_t element_size, int dimensions) {
  if (incompatible_layout(src)) throw std::runtime_error("ketra::arrayCopy: memory layout of src array is incompatible");
  if (incompatible_layout(dst)) throw std::runtime_error("ketra::arrayCopy: memory layout of dst array is incompatible");
  if (src.data == nullptr) throw std::runtime_error("ketra::arrayCopy: src is null");
  if (dst.data == nullptr) throw std::runtime_error("ketra::arrayCopy: dst is null");
  if (src.data == dst.data) throw std::runtime_error("ketra::arrayCopy: src and dst are identical");
  if (src.extents.x != dst.extents.x || src.extents.y != dst.extents.y || src.extents.z != dst.extents.z ||
      src.extents.w != dst.extents.w) {
    std::ostringstream s;
    s << "arrayCopy: extents mismatch" << "\n"
      << " src extents are " << join_extents(src.extents, dimensions) << " dst extents are "
      << join_extents(dst.extents, dimensions);
    throw std::runtime_error(s.str());
  }
  device::Copy3DParams p;
  p.srcPtr = pitched_ptr(src, element_size);
  p.dstPtr = pitched_ptr(dst, element_size);
  p.extent = device::makeExtent(src.extents.x * element_size, src.extents.y,
                                static_cast<std::size_t>(src.extents.z) * src.extents.w);
  bool src_device = src.device != -1, dst_device = dst.device != -1;
  p.kind = src_device ? (dst_device ? device::CopyDeviceToDevice : device::CopyDeviceToHost)
                      : (dst_device ? device::CopyHostToDevice : device::CopyHostToHost);
  device::copy3D(p);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

Bytes blockBytes(Bytes const& a, std::size_t element_size, Range x, Range y, Range z, Range w) {
  Range r[4] = {x, y, z, w};
  for (int d = 0; d < 4; ++d)
    if (r[d].last == -1) r[d].last = static_cast<int>(component(a.extents, d)) - 1;
  bool inside = true;
  for (int d = 0; d < 4; ++d)
    inside = inside && r[d].first >= 0 && static_cast<long long>(r[d].last) < component(a.extents, d);
  if (!inside) {
    std::ostringstream s;
    s << "block: block range is out of bounds." << "\n"
      << " array extents are " << str_extents(a.extents) << ", ranges are [";
    for (int d = 0; d < 4; ++d) s << (d ? ", " : "") << r[d].first << "-" << r[d].last;
    s << "]";
    throw std::runtime_error(s.str());
  }
  Bytes b = a;
  b.data = a.data + r[0].first * element_size + static_cast<std::size_t>(r[1].first) * a.pitch.y +
           static_cast<std::size_t>(r[2].first) * a.pitch.z + static_cast<std::size_t>(r[3].first) * a.pitch.w;
  for (int d = 0; d < 4; ++d) componentRef(b.extents, d) = static_cast<unsigned int>(r[d].last - r[d].first + 1);
  return b;
}

}  // namespace internal

template <>
void arrayCopy<float, 3>(device::TextureArray* dst, Array<float, 3> const& src) {
  internal::Bytes s = internal::asBytes(internal::as4D(src));
  if (internal::incompatible_layout(s))
    throw std::runtime_error("ketra::arrayCopy: memory layout of src array is incompatible");
  if (src.data == nullptr) throw std::runtime_error("ketra::arrayCopy: src is null");
  if (dst == nullptr) throw std::runtime_error("ketra::arrayCopy: dst is null");
  device::ChannelFormatDesc expected = device::createChannelDesc(32, 0, 0, 0, device::ChannelKindFloat);
  device::ChannelFormatDesc desc;
  device::Extent extent;
  unsigned int flags = 0;
  if (device::arrayGetInfo(&desc, &extent, &flags, dst) != device::Success)
    throw std::runtime_error("ketra::arrayCopy: cannot get array info for cudaArray dst");
  if (extent.depth == 0) extent.depth = 1;
  if (!(desc == expected)) {
    std::ostringstream m;
    m << "arrayCopy: cudaChannelFormatDesc mismatch" << "\n"
      << "src channel format desc is " << internal::str_cudaChannelFormatDesc(expected)
      << "dst channel format desc is " << internal::str_cudaChannelFormatDesc(desc);
    throw std::runtime_error(m.str());
  }
  if (src.extents.x != extent.width || src.extents.y != extent.height || src.extents.z != extent.depth) {
    std::ostringstream m;
    m << "arrayCopy: extents mismatch" << "\n"
      << " src extents are " << internal::str_extents(src.extents) << " dst extents are (" << extent.width << ", "
      << extent.height << ", " << extent.depth << ")" << "\n";
    throw std::runtime_error(m.str());
  }
  device::Copy3DParams p;
  p.srcPtr = internal::pitched_ptr(s, sizeof(float));
  p.dstArray = dst;
  p.extent = device::makeExtent(extent.width, extent.height, extent.depth);
  p.kind = src.device != -1 ? device::CopyDeviceToDevice : device::CopyHostToDevice;
  device::copy3D(p);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

}  // namespace ketra
