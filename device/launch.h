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
  int gx = 0, gy = 0, gz = 0;
  HOST_DEVICE int x() const { return gx; }
  HOST_DEVICE int y() const { return gy; }
  HOST_DEVICE int z() const { return gz; }
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
    const int base_x = static_cast<int>(idx.block.x * block.x);
    const int base_y = static_cast<int>(idx.block.y * block.y);
    const int base_z = static_cast<int>(idx.block.z * block.z);
    const int bx = static_cast<int>(block.x), by = static_cast<int>(block.y), bz = static_cast<int>(block.z);
    for (int tz = 0; tz < bz; ++tz) {
      idx.thread.z = static_cast<unsigned>(tz);
      idx.gz = base_z + tz;
      for (int ty = 0; ty < by; ++ty) {
        idx.thread.y = static_cast<unsigned>(ty);
        idx.gy = base_y + ty;
        for (int tx = 0; tx < bx; ++tx) {
          idx.thread.x = static_cast<unsigned>(tx);
          idx.gx = base_x + tx;
          kernel(idx);
        }
      }
    }
  }
  return Success;
}

// The flattened form for kernels that cover an extent element by element: kernel(x, y, z) runs
// once for each element of `extent` and never outside it, rows spread over OpenMP threads. It
// is checked as the launch of blocks of 32 x 4 x 1 over that extent would be. With no bounds
// test in the kernel the compiler can vectorise each row, as it would a plain loop.
template <class Kernel>
Error launchElements(Dim3 extent, Kernel const& kernel, stream_t stream = nullptr) {
  Dim3 block(32, 4, 1);
  Dim3 grid(blocksFor(extent.x, block.x), blocksFor(extent.y, block.y), extent.z);
  if (extent.x == 0 || extent.y == 0 || extent.z == 0) return fail(ErrorInvalidConfiguration);
  if (Error e = checkLaunch(grid, block, stream); e != Success) return fail(e);
  const int nx = static_cast<int>(extent.x), ny = static_cast<int>(extent.y);
  const long long rows = static_cast<long long>(extent.y) * extent.z;
#pragma omp parallel for schedule(static)
  for (long long r = 0; r < rows; ++r) {
    const int y = static_cast<int>(r % ny), z = static_cast<int>(r / ny);
    for (int x = 0; x < nx; ++x) kernel(x, y, z);
  }
  return Success;
}

}  // namespace device
