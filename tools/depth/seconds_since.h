#pragma once

#include <chrono>

namespace depth_tool {

// Wall seconds since `start`, for the progress lines.
inline double seconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace depth_tool
