#pragma once

#include "device/host_device.h"
#include "device/vector_types.h"

namespace ketra {

// The vector type of N unsigned components that holds pitches and extents of an N-D array.
template <int N> struct UintN;
template <> struct UintN<1> { using type = uint1; };
template <> struct UintN<2> { using type = uint2; };
template <> struct UintN<3> { using type = uint3; };
template <> struct UintN<4> { using type = uint4; };

// Descriptor of an N-dimensional block of host or device memory. It does not own the memory:
// copying aliases, and whoever allocated frees by hand (freeArray). Element (x, y, z, w) lies at
// data + x*sizeof(T) + y*pitch[1] + z*pitch[2] + w*pitch[3] bytes; pitch[0] only records the
// element size.
template <class T, int N>
struct Array {
  static_assert(N >= 1 && N <= 4, "arrays have 1 to 4 dimensions");
  using value_type = T;
  static constexpr int dimensions = N;

  T* data = nullptr;
  typename UintN<N>::type pitch{};
  typename UintN<N>::type extents{};
  int device = -1;  // device ordinal, -1 for host memory
};

enum MemLayout : int {
  Pitched = 0,  // device only: rows padded to the device's preferred pitch
  Packed = 1,   // rows, slices and volumes follow each other without gaps
};

namespace internal {

// Component i of an extents or pitch vector; components beyond the vector's size read as 1.
HOST_DEVICE inline unsigned int component(uint1 const& v, int i) { return i == 0 ? v.x : 1u; }
HOST_DEVICE inline unsigned int component(uint2 const& v, int i) { return i == 0 ? v.x : i == 1 ? v.y : 1u; }
HOST_DEVICE inline unsigned int component(uint3 const& v, int i) {
  return i == 0 ? v.x : i == 1 ? v.y : i == 2 ? v.z : 1u;
}
HOST_DEVICE inline unsigned int component(uint4 const& v, int i) {
  return i == 0 ? v.x : i == 1 ? v.y : i == 2 ? v.z : v.w;
}

HOST_DEVICE inline unsigned int& componentRef(uint1& v, int) { return v.x; }
HOST_DEVICE inline unsigned int& componentRef(uint2& v, int i) { return i == 0 ? v.x : v.y; }
HOST_DEVICE inline unsigned int& componentRef(uint3& v, int i) { return i == 0 ? v.x : i == 1 ? v.y : v.z; }
HOST_DEVICE inline unsigned int& componentRef(uint4& v, int i) {
  return i == 0 ? v.x : i == 1 ? v.y : i == 2 ? v.z : v.w;
}

}  // namespace internal

}  // namespace ketra
