#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "device/texture_array.h"
#include "ketra/array.h"
#include "ketra/check_error.h"

// Allocation, release, dimension changes, copies and views of ketra arrays. The templates are
// thin: they view arrays as 4-D byte descriptors and call the routines in tools.cpp.
namespace ketra {

// An inclusive index range; last = -1 means up to the end of the dimension.
struct Range {
  int first;
  int last;
  Range(int first = 0, int last = -1);  // throws when first > last
};

namespace internal {

using Bytes = Array<unsigned char, 4>;

template <class T>
Bytes asBytes(Array<T, 4> const& a) {
  return Bytes{reinterpret_cast<unsigned char*>(a.data), a.pitch, a.extents, a.device};
}
template <class T>
Array<T, 4> fromBytes(Bytes const& b) {
  return Array<T, 4>{reinterpret_cast<T*>(b.data), b.pitch, b.extents, b.device};
}

std::string str_extents(uint1 const& e);
std::string str_extents(uint2 const& e);
std::string str_extents(uint3 const& e);
std::string str_extents(uint4 const& e);
std::string str_cudaChannelFormatDesc(device::ChannelFormatDesc const& desc);

Bytes mallocHostBytes(uint4 extents, MemLayout layout, std::size_t element_size);
Bytes mallocDeviceBytes(uint4 extents, MemLayout layout, std::size_t element_size);
void freeMemory(void* data, int device);
[[noreturn]] void throwCannotDecrease(int source_dimension, int target_dimension, std::string const& extents);
// `dimensions` is the dimension of the caller's arrays, for the extents in messages.
void arrayCopyBytes(Bytes const& dst, Bytes const& src, std::size_t element_size, int dimensions);
Bytes blockBytes(Bytes const& a, std::size_t element_size, Range x, Range y, Range z, Range w);

// The same memory seen with D dimensions (D < S). Every extent beyond D must be 1.
template <class T, int S, int D>
Array<T, D> decreaseArrayDimension(Array<T, S>& a) {
  static_assert(D < S, "decreaseArrayDimension lowers the dimension");
  for (int d = D; d < S; ++d)
    if (component(a.extents, d) != 1) throwCannotDecrease(S, D, str_extents(a.extents));
  Array<T, D> r;
  r.data = a.data;
  r.device = a.device;
  for (int d = 0; d < D; ++d) {
    componentRef(r.pitch, d) = component(a.pitch, d);
    componentRef(r.extents, d) = component(a.extents, d);
  }
  return r;
}

// The same memory seen with D dimensions (D >= S). New extents are 1 and new pitches repeat the
// last meaningful span, so that a packed or pitched layout stays recognisable.
template <class T, int S, int D>
Array<T, D> increaseArrayDimension(Array<T, S>& a) {
  static_assert(D >= S, "increaseArrayDimension raises the dimension");
  Array<T, D> r;
  r.data = a.data;
  r.device = a.device;
  for (int d = 0; d < S; ++d) {
    componentRef(r.pitch, d) = component(a.pitch, d);
    componentRef(r.extents, d) = component(a.extents, d);
  }
  for (int d = S; d < D; ++d) {
    componentRef(r.pitch, d) = component(a.pitch, S - 1) * component(a.extents, S - 1);
    componentRef(r.extents, d) = 1;
  }
  return r;
}

template <class T, int N>
Array<T, 4> as4D(Array<T, N> const& a) {
  Array<T, N> copy = a;
  return increaseArrayDimension<T, N, 4>(copy);
}

}  // namespace internal

// A packed host array; the result of malloc is not tested.
template <class T>
Array<T, 4> mallocHostArray(uint4 extents, MemLayout layout = Packed) {
  return internal::fromBytes<T>(internal::mallocHostBytes(extents, layout, sizeof(T)));
}

// A device array, pitched or packed; allocation failures surface through _CHECK_CUDA_ERROR.
template <class T>
Array<T, 4> mallocDeviceArray(uint4 extents, MemLayout layout = Pitched) {
  return internal::fromBytes<T>(internal::mallocDeviceBytes(extents, layout, sizeof(T)));
}

// Releases what mallocHostArray or mallocDeviceArray returned (never a view). The descriptor is
// left as it is.
template <class T, int N>
void freeArray(Array<T, N>& a) {
  internal::freeMemory(a.data, a.device);
}

// Packed host descriptors of memory somebody else owns; nothing is allocated or copied.
template <class T>
Array<T, 2> arrayFromHostMemory(T* data, unsigned int width, unsigned int height) {
  Array<T, 4> a{data, make_uint4(sizeof(T), width * sizeof(T), width * height * sizeof(T), width * height * sizeof(T)),
                make_uint4(width, height, 1, 1), -1};
  return internal::decreaseArrayDimension<T, 4, 2>(a);
}
template <class T>
Array<T, 3> arrayFromHostMemory(T* data, unsigned int width, unsigned int height, unsigned int depth) {
  Array<T, 4> a{data,
                make_uint4(sizeof(T), width * sizeof(T), width * height * sizeof(T), width * height * depth * sizeof(T)),
                make_uint4(width, height, depth, 1), -1};
  return internal::decreaseArrayDimension<T, 4, 3>(a);
}
template <class T>
Array<T, 3> arrayFromHostMemory(T* data, uint3 extents) {
  return arrayFromHostMemory(data, extents.x, extents.y, extents.z);
}

// Copies src into dst (same extents) between any pair of host and device, packed and pitched
// arrays; blocks until done.
template <class T, int N>
void arrayCopy(Array<T, N>& dst, Array<T, N> const& src) {
  internal::arrayCopyBytes(internal::asBytes(internal::as4D(dst)), internal::asBytes(internal::as4D(src)), sizeof(T),
                           N);
}

// Fills a texture array of float from a 3-D float array (one slice or layer per plane).
template <class T, int N>
void arrayCopy(device::TextureArray* dst, Array<T, N> const& src);
template <>
void arrayCopy<float, 3>(device::TextureArray* dst, Array<float, 3> const& src);

// A view of a sub-block: aliases a, with a's pitches.
template <class T>
Array<T, 4> block(Array<T, 4> const& a, Range x = Range(), Range y = Range(), Range z = Range(),
                  Range w = Range()) {
  return internal::fromBytes<T>(internal::blockBytes(internal::asBytes(a), sizeof(T), x, y, z, w));
}

// The 3-D volume w of a 4-D array, as a view.
template <class T>
Array<T, 3> subvolume(Array<T, 4> const& a, int w) {
  Array<T, 4> b = block(a, Range(0, -1), Range(0, -1), Range(0, -1), Range(w, w));
  return internal::decreaseArrayDimension<T, 4, 3>(b);
}

// Copies a 1-D array into a vector that already has its size.
template <class T>
void vectorCopy(std::vector<T>& dst, Array<T, 1> src) {
  unsigned int bytes = static_cast<unsigned int>(dst.size() * sizeof(T));
  Array<T, 4> wrapped{dst.data(), make_uint4(sizeof(T), bytes, bytes, bytes),
                      make_uint4(static_cast<unsigned int>(dst.size()), 1, 1, 1), -1};
  Array<T, 1> d = internal::decreaseArrayDimension<T, 4, 1>(wrapped);
  arrayCopy(d, src);
}

}  // namespace ketra
