#pragma once

#include "device/error.h"
#include "device/host_device.h"
#include "device/stream.h"

namespace device {

// Sizes and indices of a launch, in three dimensions.
struct Dim3 {
  unsigned int x = 1, y = 1, z = 1;
  constexpr Dim3(unsigned int x_ = 1, unsigned int y_ = 1, unsigned int z_ = 1) : x(x_), y(y_), z(z_) {}
};

// Limits of a launch configuration, those of the GPUs the system's kernels were shaped for.
constexpr unsigned int kMaxThreadsPerBlock = 1024;
constexpr unsigned int kMaxBlockX = 1024, kMaxBlockY = 1024, kMaxBlockZ = 64;
constexpr unsigned int kMaxGridX = 2147483647u, kMaxGridY = 65535, kMaxGridZ = 65535;

// What a per-element function receives: its block and thread, and the launch shape.
struct Index {
  Dim3 block;      // block index in the grid
  Dim3 thread;     // thread index in the block
  Dim3 blockDim;   // threads per block
  Dim3 gridDim;    // blocks per grid
  // Global thread coordinates, as signed 32-bit indices like kernels use them.
  HOST_DEVICE int x() const { return static_cast<int>(block.x * blockDim.x + thread.x); }
  HOST_DEVICE int y() const { return static_cast<int>(block.y * blockDim.y + thread.y); }
  HOST_DEVICE int z() const { return static_cast<int>(block.z * blockDim.z + thread.z); }
};

// Returns Success or the launch error (invalid configuration, invalid stream) without recording it.
Error checkLaunch(Dim3 grid, Dim3 block, stream_t stream);

// Number of blocks needed to cover n elements with blocks of `per_block`.
constexpr unsigned int blocksFor(unsigned int n, unsigned int per_block) {
  return (n + per_block - 1) / per_block;
}

// Runs kernel(Index) once for every thread of every block, blocks spread over OpenMP threads.
// A bad configuration runs nothing and becomes the last error, as a GPU launch would. The
// kernel is inlined into the loops: no call through a pointer per element.
template <class Kernel>
Error launch(Dim3 grid, Dim3 block, Kernel const& kernel, stream_t stream = nullptr) {
  if (Error e = checkLaunch(grid, block, stream); e != Success) return fail(e);
  const long long gx = grid.x, gy = grid.y, gz = grid.z;
  const long long blocks = gx * gy * gz;
#pragma omp parallel for schedule(static)
  for (long long b = 0; b < blocks; ++b) {
    Index idx{Dim3(static_cast<unsigned>(b % gx), static_cast<unsigned>(b / gx % gy),
                   static_cast<unsigned>(b / (gx * gy))),
              Dim3(), block, grid};
    for (unsigned tz = 0; tz < block.z; ++tz) {
      idx.thread.z = tz;
      for (unsigned ty = 0; ty < block.y; ++ty) {
        idx.thread.y = ty;
        for (unsigned tx = 0; tx < block.x; ++tx) {
          idx.thread.x = tx;
          kernel(idx);
        }
      }
    }
  }
  return Success;
}

}  // namespace device
