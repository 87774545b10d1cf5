#pragma once

#include <cstdint>
#include <cstring>
#include <string>

namespace scene {

// Appends the bytes of a number in little-endian order, whatever the host order.
template <typename T>
void put_le(std::string& out, T value) {
  unsigned char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  uint16_t probe = 1;
  const bool host_little = *reinterpret_cast<unsigned char*>(&probe) == 1;
  for (size_t k = 0; k < sizeof(T); ++k) out += static_cast<char>(bytes[host_little ? k : sizeof(T) - 1 - k]);
}

}  // namespace scene
