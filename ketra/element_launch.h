#pragma once

#include "device/launch.h"
#include "ketra/access.h"
#include "ketra/check_error.h"

// The launch shape of the element-wise algorithms: blocks of 128 x 2 threads, a grid of
// ceil(x/128) by ceil(y/2) by z*w blocks, with z and w recovered from the block's z index.
namespace ketra::internal {

template <class Op>
void forEachElement4(uint4 e, Op const& op, device::stream_t stream) {
  device::Dim3 block(128, 2, 1);
  device::Dim3 grid(device::blocksFor(e.x, 128), device::blocksFor(e.y, 2), e.z * e.w);
  const int ex = static_cast<int>(e.x), ey = static_cast<int>(e.y), ez = static_cast<int>(e.z);
  device::launch(
      grid, block,
      [=](device::Index const& i) {
        int x = i.x(), y = i.y();
        if (x >= ex || y >= ey) return;
        int z = static_cast<int>(i.block.z) % ez, w = static_cast<int>(i.block.z) / ez;
        op(x, y, z, w);
      },
      stream);
}

}  // namespace ketra::internal
