#pragma once

#include <cstdlib>

#include "ketra/array.h"

namespace ketra {

// Address of element (x, y, z, w). The y, z and w terms are computed in 32-bit unsigned
// arithmetic, as kernels do; indices must lie inside the array.
template <class T, int N>
HOST_DEVICE inline T& element(Array<T, N> const& a, int x, int y = 0, int z = 0, int w = 0) {
  unsigned int offset = static_cast<unsigned int>(y) * internal::component(a.pitch, 1);
  if constexpr (N >= 3) offset += static_cast<unsigned int>(z) * internal::component(a.pitch, 2);
  if constexpr (N >= 4) offset += static_cast<unsigned int>(w) * internal::component(a.pitch, 3);
  (void)z;
  (void)w;
  return *reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(a.data) + static_cast<long long>(x) * sizeof(T) +
                               offset);
}

// Boundary accessors: read element (x, y, z, w) at indices that may lie outside the array. All
// dimensions are treated alike; dimensions the array lacks have extent 1.

// Index i goes to max(0, i), and to n-1 when that is >= n.
struct ArrayAccessClamp {
  HOST_DEVICE static int map(int i, int n) {
    i = i < 0 ? 0 : i;
    return i >= n ? n - 1 : i;
  }
  template <class T, int N>
  HOST_DEVICE static T read(Array<T, N> const& a, int x, int y = 0, int z = 0, int w = 0) {
    return element(a, map(x, extent(a, 0)), map(y, extent(a, 1)), map(z, extent(a, 2)), map(w, extent(a, 3)));
  }
  template <class T, int N>
  HOST_DEVICE static int extent(Array<T, N> const& a, int d) {
    return static_cast<int>(internal::component(a.extents, d));
  }
};

// Index i goes to |i|, and to 2n-2-|i| when that is >= n: one reflection without repeating the
// edge element. Indices more than one array length away stay out of range after the
// reflection; they are clamped so that a read never leaves the array (the filters refuse
// shapes that could reach them).
struct ArrayAccessMirror {
  HOST_DEVICE static int map(int i, int n) {
    i = std::abs(i);
    if (i >= n) i = 2 * n - 2 - i;
    return i < 0 ? 0 : (i >= n ? n - 1 : i);
  }
  template <class T, int N>
  HOST_DEVICE static T read(Array<T, N> const& a, int x, int y = 0, int z = 0, int w = 0) {
    return element(a, map(x, ArrayAccessClamp::extent(a, 0)), map(y, ArrayAccessClamp::extent(a, 1)),
                   map(z, ArrayAccessClamp::extent(a, 2)), map(w, ArrayAccessClamp::extent(a, 3)));
  }
};

// Indices outside the array read as a value-initialised T (zero).
struct ArrayAccessZero {
  HOST_DEVICE static bool inside(int i, int n) { return i >= 0 && i < n; }
  template <class T, int N>
  HOST_DEVICE static T read(Array<T, N> const& a, int x, int y = 0, int z = 0, int w = 0) {
    if (!inside(x, ArrayAccessClamp::extent(a, 0)) || !inside(y, ArrayAccessClamp::extent(a, 1)) ||
        !inside(z, ArrayAccessClamp::extent(a, 2)) || !inside(w, ArrayAccessClamp::extent(a, 3)))
      return T{};
    return element(a, x, y, z, w);
  }
};

}  // namespace ketra
