#pragma once

#include <string>

#include "device/stream.h"
#include "ketra/array.h"

// Separable correlation filters along one axis, and the 3 x 3 median.
namespace ketra {

// N coefficients and the index of the one that lies on the centre sample.
template <class T, int N>
struct Filter {
  T coefficients[N];
  int offset;
};

// How reads outside the array are answered: the accessors of access.h.
enum BorderTreatment : int {
  BorderMirror = 0,
  BorderZero = 1,
  BorderClamp = 2,
};

// out(x, y, z) = sum over k of f[k] * in(x + k - offset, y, z) (along the axis of the name),
// accumulated in T from 0 in the order of k; multi-component U per component.
template <class T, class U, int N>
void filterX(Array<U, 4>& out, Array<U, 4> const& in, Filter<T, N> const& filter, BorderTreatment border);
template <class T, class U, int N>
void filterY(Array<U, 4>& out, Array<U, 4> const& in, Filter<T, N> const& filter, BorderTreatment border);
template <class T, class U, int N>
void filterZ(Array<U, 4>& out, Array<U, 4> const& in, Filter<T, N> const& filter, BorderTreatment border);

// Median of the 3 x 3 neighbourhood of each pixel, coordinates clamped to the image.
void median3x3(Array<float, 2>& out, Array<float, 2> const& in);

namespace internal {

// The message for bad filter arguments, empty when they are fine. `axis` is 0, 1 or 2;
// `coefficients` is the filter as text.
std::string param_sanity_check(int axis, Array<unsigned char, 4> const& out, Array<unsigned char, 4> const& in,
                               int offset, int length, std::string const& coefficients, BorderTreatment border);

}  // namespace internal

}  // namespace ketra
