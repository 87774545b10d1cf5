#pragma once

#include "device/launch.h"
#include "ketra/check_error.h"
#include "src/render/points.h"
#include "src/render/render_depthmaps_kernels.h"

// Launch shapes of the renderer's passes: blocks of 128 threads for points, 32 x 4 for pixels.
namespace render_launch {

constexpr unsigned int point_block = 128;
// The largest one-dimensional grid of the hardware the passes were shaped for.
constexpr unsigned int max_batch_blocks = 65535;

// Calls launch(shape, block_offset) for batches of at most max_batch_blocks blocks that together
// cover every point, in order, and checks for a device error after each. The block count is
// exact in integers, so no tail of a large point set is lost.
template <class Launch>
void for_each_point_batch(Points const& points, Launch&& launch) {
  const unsigned int blocks = device::blocksFor(points.positions.extents.x, point_block);
  for (unsigned int offset = 0; offset < blocks; offset += max_batch_blocks) {
    const unsigned int batch = blocks - offset < max_batch_blocks ? blocks - offset : max_batch_blocks;
    launch(render_depthmaps_kernels::LaunchShape{device::Dim3(batch), device::Dim3(point_block)},
           static_cast<int>(offset));
    _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  }
}

// Blocks of 32 x 4 threads over width x height pixels.
inline render_depthmaps_kernels::LaunchShape pixel_shape(unsigned int width, unsigned int height) {
  return {device::Dim3(device::blocksFor(width, 32), device::blocksFor(height, 4)), device::Dim3(32, 4)};
}

}  // namespace render_launch
