#include "tools/depth/depth_jumps.h"

#include <vector>

namespace depth_tool {

long drop_near_side_of_jumps(CMatrix<float>& depth, const JumpSettings& s) {
  const int W = depth.xSize, H = depth.ySize, R = s.radius;
  std::vector<unsigned char> drop(depth.size(), 0);
  long dropped = 0;
#pragma omp parallel for schedule(static) reduction(+ : dropped)
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const float d = depth(x, y);
      if (!(d > 0)) continue;
      const float farther = d * (1.0f + s.jump);
      bool near_side = false;
      for (int dy = -R; dy <= R && !near_side; ++dy)
        for (int dx = -R; dx <= R && !near_side; ++dx) {
          const int u = x + dx, v = y + dy;
          if (dx * dx + dy * dy > R * R || u < 0 || v < 0 || u >= W || v >= H) continue;
          near_side = depth(u, v) > farther;
        }
      if (near_side) drop[static_cast<std::size_t>(y) * W + x] = 1, ++dropped;
    }
  for (std::size_t p = 0; p < drop.size(); ++p)
    if (drop[p]) depth.data[p] = 0.0f;
  return dropped;
}

}  // namespace depth_tool
