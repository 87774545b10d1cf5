#pragma once

#include <cmath>
#include <cstddef>
#include <type_traits>

#include "device/error.h"
#include "device/host_device.h"
#include "device/texture_array.h"
#include "device/vector_types.h"

// 2-D and layered textures: reads of an image at unnormalised float coordinates, with point or
// linear filtering and addresses clamped to the edges. Pixel (i, j) has its centre at
// (i + 0.5, j + 0.5). 8- and 16-bit channels may be read as floats in 0..1.
namespace device {

enum class FilterMode { Point, Linear };
enum class ReadMode { ElementType, NormalizedFloat };

// Per element type: the number of channels, a channel as float (scaled to 0..1 when asked and
// the channel is an unsigned integer of 8 or 16 bits), and the float vector of that width.
template <class T> struct TexelTraits;

template <int N> struct FloatVector;
template <> struct FloatVector<1> {
  using type = float;
  HOST_DEVICE static float make(const float* v) { return v[0]; }
};
template <> struct FloatVector<2> {
  using type = float2;
  HOST_DEVICE static float2 make(const float* v) { return {v[0], v[1]}; }
};
template <> struct FloatVector<4> {
  using type = float4;
  HOST_DEVICE static float4 make(const float* v) { return {v[0], v[1], v[2], v[3]}; }
};

#define DEVICE_TEXEL_TRAITS(T, N, IS_FLOAT, SCALE, ...)                           \
  template <> struct TexelTraits<T> {                                             \
    static constexpr int channels = N;                                            \
    static constexpr bool is_float = IS_FLOAT;                                    \
    static constexpr float scale = SCALE;                                         \
    HOST_DEVICE static void channelsOf(T const& t, float* out) { __VA_ARGS__ }    \
  };
DEVICE_TEXEL_TRAITS(float, 1, true, 1.0f, out[0] = t;)
DEVICE_TEXEL_TRAITS(float2, 2, true, 1.0f, out[0] = t.x; out[1] = t.y;)
DEVICE_TEXEL_TRAITS(float4, 4, true, 1.0f, out[0] = t.x; out[1] = t.y; out[2] = t.z; out[3] = t.w;)
DEVICE_TEXEL_TRAITS(unsigned char, 1, false, 1.0f / 255.0f, out[0] = t;)
DEVICE_TEXEL_TRAITS(uchar2, 2, false, 1.0f / 255.0f, out[0] = t.x; out[1] = t.y;)
DEVICE_TEXEL_TRAITS(uchar4, 4, false, 1.0f / 255.0f, out[0] = t.x; out[1] = t.y; out[2] = t.z; out[3] = t.w;)
DEVICE_TEXEL_TRAITS(unsigned short, 1, false, 1.0f / 65535.0f, out[0] = t;)
DEVICE_TEXEL_TRAITS(ushort4, 4, false, 1.0f / 65535.0f, out[0] = t.x; out[1] = t.y; out[2] = t.z; out[3] = t.w;)
#undef DEVICE_TEXEL_TRAITS

// A texture: its sampling settings and the memory bound to it. Set `filter` before binding.
// Reads with ReadMode::ElementType of integer channels return the element itself (point only).
template <class T, ReadMode R = ReadMode::ElementType>
struct Texture {
  FilterMode filter = FilterMode::Point;
  const unsigned char* base = nullptr;
  std::size_t pitch = 0;        // bytes from one row to the next
  std::size_t layer_pitch = 0;  // bytes from one layer to the next
  int width = 0, height = 0, layers = 0;

  static constexpr bool returns_float = R == ReadMode::NormalizedFloat || TexelTraits<T>::is_float;
  using value_type = T;
  using read_type = std::conditional_t<returns_float, typename FloatVector<TexelTraits<T>::channels>::type, T>;
};

namespace detail {
// Checks shared by all bindings; `offset` receives the misalignment of ptr in bytes.
Error checkBind2D(std::size_t* offset, const void* ptr, std::size_t width, std::size_t height,
                  std::size_t pitch, std::size_t element_size, bool linear_on_integers);
Error checkBindArray(const TextureArray* array, ChannelFormatDesc const& expected, bool linear_on_integers);

HOST_DEVICE inline int clampIndex(int i, int n) { return i < 0 ? 0 : (i >= n ? n - 1 : i); }
// floor of a coordinate already clamped (finite and small): exact, and without the library call
// that std::floor is on an x86-64 without SSE 4.1, which dominated the matching costs' time.
HOST_DEVICE inline int floorIndex(float c) {
  const int i = static_cast<int>(c);
  return static_cast<float>(i) > c ? i - 1 : i;
}
// Keeps coordinates in a range where the conversion to int is defined; NaN goes to -1. Written
// as comparisons: std::fmin and std::fmax are library calls on a plain x86-64.
HOST_DEVICE inline float clampCoordinate(float c, int n) {
  const float high = static_cast<float>(n) + 1.0f;
  return c > -1.0f ? (c < high ? c : high) : -1.0f;
}
}  // namespace detail

// Binds linear device memory of width x height elements with the given row pitch. The offset is
// the distance of ptr from the texture alignment (kPitchAlignment); callers treat non-zero as
// an error.
template <class T, ReadMode R>
Error bindTexture2D(std::size_t* offset, Texture<T, R>& tex, const void* ptr, std::size_t width,
                    std::size_t height, std::size_t pitch) {
  bool linear_on_integers = tex.filter == FilterMode::Linear && !Texture<T, R>::returns_float;
  if (Error e = detail::checkBind2D(offset, ptr, width, height, pitch, sizeof(T), linear_on_integers); e != Success)
    return fail(e);
  tex.base = static_cast<const unsigned char*>(ptr);
  tex.pitch = pitch;
  tex.layer_pitch = pitch * height;
  tex.width = static_cast<int>(width);
  tex.height = static_cast<int>(height);
  tex.layers = 1;
  return Success;
}

// Binds a texture array; a layered array gives one layer per slice.
template <class T, ReadMode R>
Error bindTextureToArray(Texture<T, R>& tex, const TextureArray* array) {
  bool linear_on_integers = tex.filter == FilterMode::Linear && !Texture<T, R>::returns_float;
  if (Error e = detail::checkBindArray(array, channelDescOf<T>(), linear_on_integers); e != Success)
    return fail(e);
  std::size_t height = array->extent.height ? array->extent.height : 1;
  tex.base = array->data;
  tex.pitch = array->extent.width * sizeof(T);
  tex.layer_pitch = tex.pitch * height;
  tex.width = static_cast<int>(array->extent.width);
  tex.height = static_cast<int>(height);
  tex.layers = static_cast<int>(array->extent.depth ? array->extent.depth : 1);
  return Success;
}

template <class T, ReadMode R>
Error unbindTexture(Texture<T, R>& tex) {
  tex.base = nullptr;
  tex.width = tex.height = tex.layers = 0;
  return Success;
}

namespace detail {
template <class T, ReadMode R>
HOST_DEVICE inline T const& texel(Texture<T, R> const& t, int i, int j, int layer) {
  return *reinterpret_cast<const T*>(t.base + static_cast<std::size_t>(layer) * t.layer_pitch +
                                     static_cast<std::size_t>(j) * t.pitch + static_cast<std::size_t>(i) * sizeof(T));
}

// Always inlined: the callers' per-sample loops then keep only the channels they use (the
// matching costs read three of four) and no call remains in the innermost loop.
template <class T, ReadMode R>
HOST_DEVICE inline __attribute__((always_inline)) typename Texture<T, R>::read_type sample(Texture<T, R> const& t,
                                                                                          float x, float y,
                                                                                          int layer) {
  using Traits = TexelTraits<T>;
  constexpr int n = Traits::channels;
  layer = clampIndex(layer, t.layers);
  x = clampCoordinate(x, t.width);
  y = clampCoordinate(y, t.height);
  if constexpr (!Texture<T, R>::returns_float) {
    return texel(t, clampIndex(floorIndex(x), t.width), clampIndex(floorIndex(y), t.height), layer);
  } else {
    constexpr float scale = R == ReadMode::NormalizedFloat ? Traits::scale : 1.0f;
    float result[n];
    if (t.filter == FilterMode::Point) {
      Traits::channelsOf(texel(t, clampIndex(floorIndex(x), t.width), clampIndex(floorIndex(y), t.height), layer),
                         result);
      for (int c = 0; c < n; ++c) result[c] *= scale;
    } else {
      // Bilinear between the four texel centres around (x, y).
      float xb = x - 0.5f, yb = y - 0.5f;
      int i0 = floorIndex(xb), j0 = floorIndex(yb);
      float a = xb - static_cast<float>(i0), b = yb - static_cast<float>(j0);
      int i1 = clampIndex(i0 + 1, t.width), j1 = clampIndex(j0 + 1, t.height);
      i0 = clampIndex(i0, t.width);
      j0 = clampIndex(j0, t.height);
      float v00[n], v10[n], v01[n], v11[n];
      Traits::channelsOf(texel(t, i0, j0, layer), v00);
      Traits::channelsOf(texel(t, i1, j0, layer), v10);
      Traits::channelsOf(texel(t, i0, j1, layer), v01);
      Traits::channelsOf(texel(t, i1, j1, layer), v11);
      for (int c = 0; c < n; ++c)
        result[c] = ((1.0f - a) * (1.0f - b) * (v00[c] * scale) + a * (1.0f - b) * (v10[c] * scale)) +
                    ((1.0f - a) * b * (v01[c] * scale) + a * b * (v11[c] * scale));
    }
    return FloatVector<n>::make(result);
  }
}
}  // namespace detail

template <class T, ReadMode R>
HOST_DEVICE inline __attribute__((always_inline)) typename Texture<T, R>::read_type tex2D(Texture<T, R> const& t,
                                                                                         float x, float y) {
  return detail::sample(t, x, y, 0);
}

template <class T, ReadMode R>
HOST_DEVICE inline __attribute__((always_inline)) typename Texture<T, R>::read_type tex2DLayered(
    Texture<T, R> const& t, float x, float y, int layer) {
  return detail::sample(t, x, y, layer);
}

}  // namespace device
