#pragma once

#include <cmath>
#include <cstdint>

// A float sample as a byte: truncated towards zero, then the low 8 bits, without clamping, so 256
// gives 0 and -1 gives 255. Values beyond the 64-bit range and NaN give 0 so that the conversion
// stays defined for every input.
inline unsigned char truncated_low_byte(float v) {
  if (!(std::fabs(v) < 9.2e18f)) return 0;
  return static_cast<unsigned char>(static_cast<std::uint64_t>(static_cast<std::int64_t>(v)) & 0xffu);
}
