#include "ketra/filtering.h"

#include <sstream>
#include <stdexcept>

#include "device/launch.h"
#include "ketra/access.h"
#include "ketra/algorithms/components.h"
#include "ketra/check_error.h"
#include "ketra/tools.h"

namespace ketra {

namespace internal {

std::string param_sanity_check(int axis, Array<unsigned char, 4> const& out, Array<unsigned char, 4> const& in,
                               int offset, int length, std::string const& coefficients, BorderTreatment border) {
  std::ostringstream s;
  s << "filter" << "XYZ"[axis] << ": ";
  if (out.device != in.device) {
    s << "result and input array must be on the same device";
  } else if (in.device == -1) {
    s << "both arrays must be on the device";
  } else if (in.extents.x != out.extents.x || in.extents.y != out.extents.y || in.extents.z != out.extents.z ||
             in.extents.w != out.extents.w) {
    s << "extents mismatch" << "\n"
      << " extents of input array are (" << in.extents.x << ", " << in.extents.y << ", " << in.extents.z << ", "
      << in.extents.w << ") "
      << " extents of output array are (" << out.extents.x << ", " << out.extents.y << ", " << out.extents.z
      << ", " << out.extents.w << ") ";
  } else if (static_cast<unsigned int>(offset) >= static_cast<unsigned int>(length)) {
    s << "filter offset is out of bounds." << "\n"
      << " filter offset is " << offset << ", filter length is " << length << ", filter=[" << coefficients << "]"
      << "\n"
      << " filter size is " << length;
  } else {
    long long e = component(in.extents, axis);
    if (border == BorderMirror && !(e > offset && e + offset > length - 1))
      s << "The filter is too big or the array is too small for mirroring";
    else
      return std::string();
  }
  return s.str();
}

namespace {

template <class T, int N>
std::string coefficients_text(Filter<T, N> const& f) {
  std::ostringstream s;
  for (int k = 0; k < N; ++k) s << (k ? ", " : "") << f.coefficients[k];
  return s.str();
}

// One output element: the correlation along `Axis`, component by component, in T.
template <int Axis, class Access, class T, class U, int N>
void filter_volume(Array<U, 3> out, Array<U, 3> in, Filter<T, N> f) {
  using C = Components<U>;
  // Told as blocks of 64 x 4 x 1 over x, y, z; run in the flattened form, which gives the same
  // result per element.
  device::launchElements(device::Dim3(out.extents.x, out.extents.y, out.extents.z), [=](int x, int y, int z) {
    T acc[C::n] = {};
    for (int k = 0; k < N; ++k) {
      const int d = k - f.offset;
      U v = Access::read(in, Axis == 0 ? x + d : x, Axis == 1 ? y + d : y, Axis == 2 ? z + d : z);
      for (int c = 0; c < C::n; ++c) acc[c] += f.coefficients[k] * static_cast<T>(C::at(v, c));
    }
    U r{};
    for (int c = 0; c < C::n; ++c) C::at(r, c) = static_cast<typename C::scalar>(acc[c]);
    element(out, x, y, z) = r;
  });
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

template <int Axis, class T, class U, int N>
void filter_along(Array<U, 4>& out, Array<U, 4> const& in, Filter<T, N> const& f, BorderTreatment border) {
  std::string message =
      param_sanity_check(Axis, asBytes(out), asBytes(in), f.offset, N, coefficients_text(f), border);
  if (!message.empty()) throw std::runtime_error(message);
  for (unsigned int w = 0; w < in.extents.w; ++w) {
    Array<U, 3> o = subvolume(out, static_cast<int>(w));
    Array<U, 3> i = subvolume(in, static_cast<int>(w));
    switch (border) {
      case BorderMirror: filter_volume<Axis, ArrayAccessMirror>(o, i, f); break;
      case BorderZero: filter_volume<Axis, ArrayAccessZero>(o, i, f); break;
      default: filter_volume<Axis, ArrayAccessClamp>(o, i, f); break;
    }
  }
}

}  // namespace
}  // namespace internal

template <class T, class U, int N>
void filterX(Array<U, 4>& out, Array<U, 4> const& in, Filter<T, N> const& filter, BorderTreatment border) {
  internal::filter_along<0>(out, in, filter, border);
}
template <class T, class U, int N>
void filterY(Array<U, 4>& out, Array<U, 4> const& in, Filter<T, N> const& filter, BorderTreatment border) {
  internal::filter_along<1>(out, in, filter, border);
}
template <class T, class U, int N>
void filterZ(Array<U, 4>& out, Array<U, 4> const& in, Filter<T, N> const& filter, BorderTreatment border) {
  internal::filter_along<2>(out, in, filter, border);
}

#define KETRA_FILTER(T, U, N)                                                                                   \
  template void filterX<T, U, N>(Array<U, 4>&, Array<U, 4> const&, Filter<T, N> const&, BorderTreatment);     \
  template void filterY<T, U, N>(Array<U, 4>&, Array<U, 4> const&, Filter<T, N> const&, BorderTreatment);     \
  template void filterZ<T, U, N>(Array<U, 4>&, Array<U, 4> const&, Filter<T, N> const&, BorderTreatment);
KETRA_FILTER(float, float, 2)
KETRA_FILTER(float, float, 3)
KETRA_FILTER(float, float, 4)
KETRA_FILTER(float, float, 5)
KETRA_FILTER(float, float, 6)
KETRA_FILTER(float, float, 7)
KETRA_FILTER(float, float, 8)
KETRA_FILTER(float, float, 9)
KETRA_FILTER(float, float, 10)
KETRA_FILTER(float, float2, 3)
KETRA_FILTER(float, float4, 3)
KETRA_FILTER(double, double, 3)
#undef KETRA_FILTER

// Partial bubble sort of the nine values with strict greater-than swaps: after five passes the
// fifth smallest stands at index 4. NaN values stay where the swaps leave them.
void median3x3(Array<float, 2>& out, Array<float, 2> const& in) {
  std::string message = internal::param_sanity_check(0, internal::asBytes(internal::as4D(out)),
                                                     internal::asBytes(internal::as4D(in)), 1, 3, "", BorderClamp);
  if (!message.empty()) throw std::runtime_error("median3x3: " + message.substr(9));
  Array<float, 2> o = out, i = in;
  const int ex = static_cast<int>(in.extents.x), ey = static_cast<int>(in.extents.y);
  device::Dim3 block(16, 16);
  device::Dim3 grid(device::blocksFor(in.extents.x, 16), device::blocksFor(in.extents.y, 16));
  device::launch(grid, block, [=](device::Index const& idx) {
    const int x = idx.x(), y = idx.y();
    if (x >= ex || y >= ey) return;
    float v[9];
    int n = 0;
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx) v[n++] = ArrayAccessClamp::read(i, x + dx, y + dy);
    for (int pass = 0; pass < 5; ++pass)
      for (int j = 0; j < 8 - pass; ++j)
        if (v[j] > v[j + 1]) {
          float t = v[j];
          v[j] = v[j + 1];
          v[j + 1] = t;
        }
    element(o, x, y) = v[4];
  });
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

}  // namespace ketra
