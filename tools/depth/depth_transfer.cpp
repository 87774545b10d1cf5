#include "tools/depth/depth_transfer.h"

#include <cmath>

namespace depth_tool {

CMatrix<float> transferred_depths(const ViewGeometry& target, const ViewGeometry& source,
                                  const CMatrix<float>& source_depth) {
  CMatrix<float> out(target.width, target.height, 0.0f);
  for (int y = 0; y < source_depth.ySize; ++y)
    for (int x = 0; x < source_depth.xSize; ++x) {
      const float d = source_depth(x, y);
      if (!(d > 0)) continue;
      double u, v, z;
      if (!project(target, back_project(source, x, y, d), u, v, z)) continue;
      const long iu = std::lround(u), iv = std::lround(v);
      if (iu < 0 || iv < 0 || iu >= target.width || iv >= target.height) continue;
      float& o = out(static_cast<int>(iu), static_cast<int>(iv));
      if (!(o > 0) || z < o) o = static_cast<float>(z);
    }
  return out;
}

}  // namespace depth_tool
