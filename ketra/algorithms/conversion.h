#pragma once

#include <string>

#include "device/stream.h"
#include "ketra/array.h"

// Conversions between planar images (one plane per channel) and interleaved ones (one vector
// element per pixel), and element-wise casts between element types.
namespace ketra {

// Plane c of out gets byte c of in as float, divided by 255 when normalize is set; plane 3 only
// when out has 4 planes.
template <class T>
void convert(Array<T, 3>& out, Array<uchar4, 2> const& in, bool normalize, device::stream_t stream = nullptr);

// Byte c of out is plane c of in (times 255 when normalized), truncated to an integer, low
// byte; alpha fills byte 3 when in has 3 planes.
void convert(Array<uchar4, 2>& out, Array<float, 3> const& in, bool normalized, unsigned char alpha,
             device::stream_t stream = nullptr);
void convert(Array<float4, 2>& out, Array<float, 3> const& in, float alpha, device::stream_t stream = nullptr);
void convert(Array<uchar4, 2>& out, Array<unsigned char, 3> const& in, unsigned char alpha,
             device::stream_t stream = nullptr);
void convert(Array<float, 3>& out, Array<float4, 2> const& in, device::stream_t stream = nullptr);
void convert(Array<unsigned char, 3>& out, Array<uchar4, 2> const& in, device::stream_t stream = nullptr);

// Casts each component: U and V among unsigned char, int, float with 1, 2 or 4 components.
template <class U, class V, int N>
void convert(Array<U, N>& out, Array<V, N> const& in, device::stream_t stream = nullptr);

// The same conversions on host arrays.
void convert_host(Array<uchar4, 2>& out, Array<float, 3> const& in, bool normalized, unsigned char alpha);
void convert_host(Array<float, 3>& out, Array<uchar4, 2> const& in, bool normalize);

namespace internal {

// Throws "<function>:  arrays '<a>' and '<b>' must be on the same device." with a line per array.
void check_arguments_same_device(std::string const& function, std::string const& name_a, int device_a,
                                 std::string const& name_b, int device_b);

// Truncation to int and low byte. Values beyond the int range behave like the processor's
// conversion (the integer indefinite value, low byte 0).
HOST_DEVICE inline unsigned char truncatedLowByte(float v) {
  if (!(v > -2147483648.0f && v < 2147483648.0f)) return 0;
  return static_cast<unsigned char>(static_cast<unsigned int>(static_cast<int>(v)) & 0xffu);
}

}  // namespace internal

}  // namespace ketra
