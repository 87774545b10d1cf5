#pragma once

#include "device/launch.h"
#include "ketra/access.h"
#include "ketra/check_error.h"

// Runs op(x, y, z, w) once for every element of a 4-D extent. The element algorithms are told
// with blocks of 128 x 2 threads over x and y and one block layer per (z, w); the shape has no
// effect on results, so they run in the flattened form, where rows vectorise.
namespace ketra::internal {

template <class Op>
void forEachElement4(uint4 e, Op const& op, device::stream_t stream) {
  const int ez = static_cast<int>(e.z);
  device::launchElements(
      device::Dim3(e.x, e.y, e.z * e.w), [=](int x, int y, int zw) { op(x, y, zw % ez, zw / ez); }, stream);
}

}  // namespace ketra::internal
