#pragma once

#include <string>
#include <vector>

// The float array files that hold the depth maps of a multi-view-stereo workspace: a text header
// "width&height&channels&" and then width * height * channels little-endian float32 values,
// channel by channel, each channel row by row (element (x, y) of channel c at
// (c * height + y) * width + x).
namespace importer {

struct DepthArray {
  int width = 0, height = 0;
  std::vector<float> values;  // one channel, row by row
};

// Reads a one-channel array; fails naming the file for a bad header, another channel count, or
// a data size that does not match the header.
DepthArray read_depth_array(const std::string& path);

}  // namespace importer
