#pragma once

#include "device/host_device.h"

// 48-bit Morton keys of three 16-bit cell coordinates: bit b of x goes to bit 3b, of y to 3b + 1,
// of z to 3b + 2. Coordinates are not range-checked: bits 16..23 are dropped and bits 24..31 land on
// bits 8..15, so the coordinate -1 (a neighbour of cell 0) encodes like 65535.

HOST_DEVICE inline unsigned long long morton_spread(unsigned long long v) {
  v = (v | v << 16) & 0xff0000ffULL;
  v = (v | v << 8) & 0xf00f00f00fULL;
  v = (v | v << 4) & 0xc30c30c30c3ULL;
  v = (v | v << 2) & 0x249249249249ULL;
  return v;
}

HOST_DEVICE inline unsigned long long morton_compact(unsigned long long v) {
  v &= 0x249249249249ULL;
  v = (v ^ (v >> 2)) & 0xc30c30c30c3ULL;
  v = (v ^ (v >> 4)) & 0xf00f00f00fULL;
  v = (v ^ (v >> 8)) & 0xff0000ffULL;
  v = (v ^ (v >> 16)) & 0xffffULL;
  return v;
}

HOST_DEVICE inline unsigned long long encode(unsigned long long x, unsigned long long y, unsigned long long z) {
  return morton_spread(x) | morton_spread(y) << 1 | morton_spread(z) << 2;
}

HOST_DEVICE inline void decode(unsigned long long key, unsigned int& x, unsigned int& y, unsigned int& z) {
  x = static_cast<unsigned int>(morton_compact(key));
  y = static_cast<unsigned int>(morton_compact(key >> 1));
  z = static_cast<unsigned int>(morton_compact(key >> 2));
}

// Key of all particles whose position is not finite: the largest key, so they form the last cell.
constexpr unsigned long long invalid_cell_key = 0xffffffffffffULL;
static_assert(invalid_cell_key == (0x249249249249ULL | 0x249249249249ULL << 1 | 0x249249249249ULL << 2));
