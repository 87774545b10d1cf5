#pragma once

#include "device/stream.h"
#include "ketra/array.h"

// Element-wise algorithms on device arrays, result in the first operand, and the min/max
// reduction. Arrays of any dimension are handled as 4-D.
namespace ketra {

template <class T, int N> void set(Array<T, N>& a, T value, device::stream_t stream = nullptr);
template <class T, int N> void add(Array<T, N>& a, T value, device::stream_t stream = nullptr);
template <class T, int N> void sub(Array<T, N>& a, T value, device::stream_t stream = nullptr);
template <class T, int N> void mul(Array<T, N>& a, T value, device::stream_t stream = nullptr);
template <class T, int N> void div(Array<T, N>& a, T value, device::stream_t stream = nullptr);

template <class T, int N> void set(Array<T, N>& a, Array<T, N> const& b, device::stream_t stream = nullptr);
template <class T, int N> void add(Array<T, N>& a, Array<T, N> const& b, device::stream_t stream = nullptr);
template <class T, int N> void sub(Array<T, N>& a, Array<T, N> const& b, device::stream_t stream = nullptr);
template <class T, int N> void mul(Array<T, N>& a, Array<T, N> const& b, device::stream_t stream = nullptr);
template <class T, int N> void div(Array<T, N>& a, Array<T, N> const& b, device::stream_t stream = nullptr);

// Minimum (x) and maximum (y) of a 2-D array of unsigned char, int or float.
template <class T> struct MinMaxResult;
template <> struct MinMaxResult<unsigned char> { using type = uchar2; };
template <> struct MinMaxResult<int> { using type = int2; };
template <> struct MinMaxResult<float> { using type = float2; };

template <class T> typename MinMaxResult<T>::type MinMax(Array<T, 2>& a, device::stream_t stream = nullptr);
template <class T> T Min(Array<T, 2>& a, device::stream_t stream = nullptr);
template <class T> T Max(Array<T, 2>& a, device::stream_t stream = nullptr);

namespace internal {
// Argument checks of the element-wise family; they throw std::runtime_error.
void check_on_device(int device);
void sanity_check_arguments(Array<unsigned char, 4> const& a, Array<unsigned char, 4> const& b);
}  // namespace internal

}  // namespace ketra
