#pragma once

// The depth map a generated scene's view file names, read as depths: the truth the depth tool's
// steps are measured against.

#include <string>

#include "formats/depth_png.h"
#include "image/CMatrix.h"

namespace depth_test {

// Depths in the length unit, 0 where no surface is.
inline CMatrix<float> true_depth(const std::string& depth_path) {
  const CMatrix<unsigned short> png = read_depth_png(depth_path);
  CMatrix<float> depth(png.xSize, png.ySize);
  for (std::size_t i = 0; i < png.size(); ++i) depth.data[i] = static_cast<float>(thousandths_to_depth(png.data[i]));
  return depth;
}

}  // namespace depth_test
