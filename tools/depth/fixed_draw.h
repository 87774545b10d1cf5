#pragma once

#include <cstdint>

namespace depth_tool {

// A well-mixed 64-bit number from a key: random-looking draws that are the same on every run and
// with any number of threads.
inline std::uint64_t mixed(std::uint64_t z) {
  z += 0x9e3779b97f4a7c15ULL;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

}  // namespace depth_tool
