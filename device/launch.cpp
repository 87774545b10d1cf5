#include "device/launch.h"

namespace device {

Error checkLaunch(Dim3 grid, Dim3 block, stream_t stream) {
  if (block.x == 0 || block.y == 0 || block.z == 0) return ErrorInvalidConfiguration;
  if (grid.x == 0 || grid.y == 0 || grid.z == 0) return ErrorInvalidConfiguration;
  if (block.x > kMaxBlockX || block.y > kMaxBlockY || block.z > kMaxBlockZ) return ErrorInvalidConfiguration;
  if (static_cast<unsigned long long>(block.x) * block.y * block.z > kMaxThreadsPerBlock)
    return ErrorInvalidConfiguration;
  if (grid.x > kMaxGridX || grid.y > kMaxGridY || grid.z > kMaxGridZ) return ErrorInvalidConfiguration;
  if (!isValidStream(stream)) return ErrorInvalidResourceHandle;
  return Success;
}

}  // namespace device
