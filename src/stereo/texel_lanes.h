#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "device/texture.h"
#include "src/core/simd_lanes.h"

// Reads of an 8-bit RGBA texture for eight lanes at once, for the matching kernels' vector forms:
// each lane gets exactly what the texture read of its one-pixel form gets.
namespace depthmap_estimation_kernels {

using ColourTexture = device::Texture<uchar4, device::ReadMode::NormalizedFloat>;

LANE_INLINE lane_int int_lanes(int v) {
  lane_int r;
  for (int k = 0; k < kLanes; ++k) r[k] = v;
  return r;
}

LANE_INLINE std::uint32_t texel_word(const unsigned char* base, int index) {
  std::uint32_t w;
  std::memcpy(&w, base + static_cast<std::size_t>(index) * 4, 4);
  return w;
}

// The texels at (i, j) of every lane, as 32-bit words (R in the low byte). The vector is built
// from its elements in one expression: filled lane by lane through memory, its load would wait
// for eight separate stores.
LANE_INLINE lane_int texel_lanes(ColourTexture const& t, lane_int i, lane_int j) {
  const lane_int at = j * static_cast<int>(t.pitch / 4) + i;
  const unsigned char* b = t.base;
  return lane_int{static_cast<int>(texel_word(b, at[0])), static_cast<int>(texel_word(b, at[1])),
                  static_cast<int>(texel_word(b, at[2])), static_cast<int>(texel_word(b, at[3])),
                  static_cast<int>(texel_word(b, at[4])), static_cast<int>(texel_word(b, at[5])),
                  static_cast<int>(texel_word(b, at[6])), static_cast<int>(texel_word(b, at[7]))};
}

// Channel c (0 R, 1 G, 2 B) of texel words as the texture reads it: byte * (1 / 255).
LANE_INLINE lane_float channel_lanes(lane_int words, int c) {
  return __builtin_convertvector((words >> (8 * c)) & 0xff, lane_float) * device::TexelTraits<uchar4>::scale;
}

// The bilinear read of every lane at array position (xb, yb) = texture coordinate - 0.5, as
// tex2D computes it where the position lies inside the image: no clamp acts on the position, and
// it is not negative, so truncation is floor. rgb receives the three channels.
LANE_INLINE void bilinear_lanes(ColourTexture const& t, lane_float xb, lane_float yb, lane_float (&rgb)[3]) {
  const lane_int i0 = __builtin_convertvector(xb, lane_int), j0 = __builtin_convertvector(yb, lane_int);
  const lane_float a = xb - __builtin_convertvector(i0, lane_float), b = yb - __builtin_convertvector(j0, lane_float);
  const lane_int i1 = i0 + 1 < t.width ? i0 + 1 : int_lanes(t.width - 1);
  const lane_int j1 = j0 + 1 < t.height ? j0 + 1 : int_lanes(t.height - 1);
  const lane_int t00 = texel_lanes(t, i0, j0), t10 = texel_lanes(t, i1, j0), t01 = texel_lanes(t, i0, j1),
                 t11 = texel_lanes(t, i1, j1);
  const lane_float w00 = (1.0f - a) * (1.0f - b), w10 = a * (1.0f - b), w01 = (1.0f - a) * b, w11 = a * b;
  for (int c = 0; c < 3; ++c)
    rgb[c] = (w00 * channel_lanes(t00, c) + w10 * channel_lanes(t10, c)) +
             (w01 * channel_lanes(t01, c) + w11 * channel_lanes(t11, c));
}

}  // namespace depthmap_estimation_kernels
