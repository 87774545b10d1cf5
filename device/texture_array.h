#pragma once

#include <cstddef>

#include "device/memory.h"
#include "device/vector_types.h"

namespace device {

// Kind of the channels of a texture array.
enum ChannelKind : int {
  ChannelKindSigned = 0,
  ChannelKindUnsigned = 1,
  ChannelKindFloat = 2,
  ChannelKindNone = 3,
};

// Bits per channel (x, y, z, w) and their kind.
struct ChannelFormatDesc {
  int x = 0, y = 0, z = 0, w = 0;
  ChannelKind f = ChannelKindNone;
};

inline bool operator==(ChannelFormatDesc const& a, ChannelFormatDesc const& b) {
  return a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w && a.f == b.f;
}

ChannelFormatDesc createChannelDesc(int x, int y, int z, int w, ChannelKind f);

// Channel format of an element type, for the types textures are made of.
template <class T> ChannelFormatDesc channelDescOf();
template <> inline ChannelFormatDesc channelDescOf<float>() { return {32, 0, 0, 0, ChannelKindFloat}; }
template <> inline ChannelFormatDesc channelDescOf<float2>() { return {32, 32, 0, 0, ChannelKindFloat}; }
template <> inline ChannelFormatDesc channelDescOf<float4>() { return {32, 32, 32, 32, ChannelKindFloat}; }
template <> inline ChannelFormatDesc channelDescOf<int>() { return {32, 0, 0, 0, ChannelKindSigned}; }
template <> inline ChannelFormatDesc channelDescOf<unsigned int>() { return {32, 0, 0, 0, ChannelKindUnsigned}; }
template <> inline ChannelFormatDesc channelDescOf<unsigned char>() { return {8, 0, 0, 0, ChannelKindUnsigned}; }
template <> inline ChannelFormatDesc channelDescOf<uchar2>() { return {8, 8, 0, 0, ChannelKindUnsigned}; }
template <> inline ChannelFormatDesc channelDescOf<uchar4>() { return {8, 8, 8, 8, ChannelKindUnsigned}; }
template <> inline ChannelFormatDesc channelDescOf<unsigned short>() { return {16, 0, 0, 0, ChannelKindUnsigned}; }
template <> inline ChannelFormatDesc channelDescOf<ushort4>() { return {16, 16, 16, 16, ChannelKindUnsigned}; }

// Flags of allocateArray3D.
constexpr unsigned kArrayDefault = 0;
constexpr unsigned kArrayLayered = 1;

// Opaque-looking storage behind textures: packed rows of `extent.width` elements. `extent` is
// kept as requested: a 2-D array has depth 0, a layered array has depth = number of layers.
struct TextureArray {
  ChannelFormatDesc desc;
  Extent extent;
  unsigned flags = 0;
  std::size_t element_size = 0;
  unsigned char* data = nullptr;
};

// Bytes per element of a channel format, 0 when the format is not valid.
std::size_t channelElementSize(ChannelFormatDesc const& desc);

Error allocateArray(TextureArray** array, ChannelFormatDesc const* desc, std::size_t width,
                    std::size_t height);
Error allocateArray3D(TextureArray** array, ChannelFormatDesc const* desc, Extent extent, unsigned flags);
Error releaseArray(TextureArray* array);
Error arrayGetInfo(ChannelFormatDesc* desc, Extent* extent, unsigned* flags, TextureArray* array);

// Internal: true when `array` is a live texture array.
bool isTextureArray(const TextureArray* array);

}  // namespace device
