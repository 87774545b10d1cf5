#pragma once

#include "ketra/tools.h"

// A pitched device array of width x height x planes elements, seen with N dimensions.
template <class T, int N>
ketra::Array<T, N> allocate_pitched(unsigned int width, unsigned int height, unsigned int planes) {
  ketra::Array<T, 4> a = ketra::mallocDeviceArray<T>(make_uint4(width, height, planes, 1), ketra::Pitched);
  return ketra::internal::decreaseArrayDimension<T, 4, N>(a);
}
