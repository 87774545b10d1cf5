#pragma once

#include "device/host_device.h"
#include "device/vector_types.h"

// Component-wise view of element types, so that element algorithms apply the plain scalar
// operation to each component.
namespace ketra::internal {

template <class T> struct Components {
  using scalar = T;
  static constexpr int n = 1;
  HOST_DEVICE static scalar& at(T& v, int) { return v; }
  HOST_DEVICE static scalar const& at(T const& v, int) { return v; }
};

#define KETRA_VECTOR_COMPONENTS(V, S, N, PICK)                             \
  template <> struct Components<V> {                                       \
    using scalar = S;                                                      \
    static constexpr int n = N;                                            \
    HOST_DEVICE static S& at(V& v, int i) { return PICK; }                 \
    HOST_DEVICE static S const& at(V const& v, int i) { return PICK; }     \
  };
#define KETRA_PICK2 i == 0 ? v.x : v.y
#define KETRA_PICK3 i == 0 ? v.x : i == 1 ? v.y : v.z
#define KETRA_PICK4 i == 0 ? v.x : i == 1 ? v.y : i == 2 ? v.z : v.w
KETRA_VECTOR_COMPONENTS(float2, float, 2, KETRA_PICK2)
KETRA_VECTOR_COMPONENTS(float3, float, 3, KETRA_PICK3)
KETRA_VECTOR_COMPONENTS(float4, float, 4, KETRA_PICK4)
KETRA_VECTOR_COMPONENTS(double2, double, 2, KETRA_PICK2)
KETRA_VECTOR_COMPONENTS(int2, int, 2, KETRA_PICK2)
KETRA_VECTOR_COMPONENTS(int3, int, 3, KETRA_PICK3)
KETRA_VECTOR_COMPONENTS(int4, int, 4, KETRA_PICK4)
KETRA_VECTOR_COMPONENTS(uint2, unsigned int, 2, KETRA_PICK2)
KETRA_VECTOR_COMPONENTS(uint3, unsigned int, 3, KETRA_PICK3)
KETRA_VECTOR_COMPONENTS(uint4, unsigned int, 4, KETRA_PICK4)
KETRA_VECTOR_COMPONENTS(uchar2, unsigned char, 2, KETRA_PICK2)
KETRA_VECTOR_COMPONENTS(uchar4, unsigned char, 4, KETRA_PICK4)
KETRA_VECTOR_COMPONENTS(ushort4, unsigned short, 4, KETRA_PICK4)
#undef KETRA_PICK2
#undef KETRA_PICK3
#undef KETRA_PICK4
#undef KETRA_VECTOR_COMPONENTS

// r = op(a, b) component by component.
template <class T, class Op>
HOST_DEVICE inline T componentwise(T a, T const& b, Op op) {
  using C = Components<T>;
  for (int i = 0; i < C::n; ++i) C::at(a, i) = op(C::at(a, i), C::at(b, i));
  return a;
}

}  // namespace ketra::internal
