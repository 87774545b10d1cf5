#include "ketra/algorithms/conversion.h"

#include <sstream>
#include <stdexcept>

#include "ketra/algorithms/components.h"
#include "ketra/element_launch.h"
#include "ketra/tools.h"

namespace ketra {

namespace internal {

void check_arguments_same_device(std::string const& function, std::string const& name_a, int device_a,
                                 std::string const& name_b, int device_b) {
  if (device_a == device_b) return;
  auto where = [](int d) { return d == -1 ? std::string("HOST") : std::to_string(d); };
  std::ostringstream s;
  s << function << ":  " << "arrays '" << name_a << "' and '" << name_b << "' must be on the same device." << "\n"
    << " '" << name_a << "' is on device " << where(device_a) << "\n"
    << " '" << name_b << "' is on device " << where(device_b) << "\n";
  throw std::runtime_error(s.str());
}

namespace {

void check_device(std::string const& function, int device) {
  if (device == -1) throw std::runtime_error(function + ": memory of the arrays must be on the device");
}

// Planar (x, y, 3 or 4) against interleaved (x, y).
void check_planar_extents(std::string const& function, uint3 planar, uint2 interleaved, char const* planar_name) {
  bool xy = planar.x == interleaved.x && planar.y == interleaved.y;
  bool z = planar.z == 3 || planar.z == 4;
  if (xy && z) return;
  std::ostringstream s;
  s << function << ": wrong '" << planar_name << "' array extents." << "\n";
  if (!xy) {
    bool planar_out = planar_name[0] == 'o';
    s << " 'in'  extents are " << (planar_out ? str_extents(interleaved) : str_extents(planar)) << "\n"
      << " 'out' extents are " << (planar_out ? str_extents(planar) : str_extents(interleaved)) << "\n"
      << " expected extents for 'out' are ";
    if (planar_out)
      s << "(" << interleaved.x << ", " << interleaved.y << ", " << planar.z << ")";
    else
      s << "(" << planar.x << ", " << planar.y << ")";
    s << "\n";
  } else {
    s << " '" << planar_name << "' extents are " << str_extents(planar) << "\n"
      << " expected extents.z == 3 or 4 " << "\n";
  }
  throw std::runtime_error(s.str());
}

// The checks of the planar/interleaved forms: same device, on the device, extents.
void check_interleaved(std::string const& function, int out_device, int in_device, uint3 planar, uint2 interleaved,
                       char const* planar_name) {
  check_arguments_same_device(function, "out", out_device, "in", in_device);
  check_device(function, out_device);
  check_planar_extents(function, planar, interleaved, planar_name);
}

// Runs per_pixel(x, y) over a 2-D extent with the element launch shape.
template <class F>
void for_each_pixel(uint2 e, F const& per_pixel, device::stream_t stream) {
  forEachElement4(make_uint4(e.x, e.y, 1, 1), [=](int x, int y, int, int) { per_pixel(x, y); }, stream);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

template <class F>
void for_each_pixel_host(uint2 e, F const& per_pixel) {
#pragma omp parallel for schedule(static)
  for (int y = 0; y < static_cast<int>(e.y); ++y)
    for (int x = 0; x < static_cast<int>(e.x); ++x) per_pixel(x, y);
}

auto planar_from_uchar4(Array<float, 3> out, Array<uchar4, 2> in, bool normalize) {
  return [=](int x, int y) {
    uchar4 v = element(in, x, y);
    unsigned char bytes[4] = {v.x, v.y, v.z, v.w};
    for (int c = 0; c < static_cast<int>(out.extents.z); ++c)
      element(out, x, y, c) = normalize ? static_cast<float>(bytes[c]) / 255.0f : static_cast<float>(bytes[c]);
  };
}

auto uchar4_from_planar(Array<uchar4, 2> out, Array<float, 3> in, bool normalized, unsigned char alpha) {
  return [=](int x, int y) {
    unsigned char bytes[4] = {0, 0, 0, alpha};
    for (int c = 0; c < static_cast<int>(in.extents.z); ++c) {
      float v = element(in, x, y, c);
      bytes[c] = truncatedLowByte(normalized ? v * 255.0f : v);
    }
    element(out, x, y) = make_uchar4(bytes[0], bytes[1], bytes[2], bytes[3]);
  };
}

}  // namespace
}  // namespace internal

template <class T>
void convert(Array<T, 3>& out, Array<uchar4, 2> const& in, bool normalize, device::stream_t stream) {
  internal::check_interleaved("convert", out.device, in.device, out.extents, in.extents, "out");
  internal::for_each_pixel(in.extents, internal::planar_from_uchar4(out, in, normalize), stream);
}
template void convert<float>(Array<float, 3>&, Array<uchar4, 2> const&, bool, device::stream_t);

void convert(Array<uchar4, 2>& out, Array<float, 3> const& in, bool normalized, unsigned char alpha,
             device::stream_t stream) {
  internal::check_interleaved("convert", out.device, in.device, in.extents, out.extents, "in");
  internal::for_each_pixel(out.extents, internal::uchar4_from_planar(out, in, normalized, alpha), stream);
}

void convert(Array<float4, 2>& out, Array<float, 3> const& in, float alpha, device::stream_t stream) {
  internal::check_interleaved("convert", out.device, in.device, in.extents, out.extents, "in");
  Array<float4, 2> o = out;
  Array<float, 3> i = in;
  internal::for_each_pixel(
      out.extents,
      [=](int x, int y) {
        float v[4] = {0.0f, 0.0f, 0.0f, alpha};
        for (int c = 0; c < static_cast<int>(i.extents.z); ++c) v[c] = element(i, x, y, c);
        element(o, x, y) = make_float4(v[0], v[1], v[2], v[3]);
      },
      stream);
}

void convert(Array<uchar4, 2>& out, Array<unsigned char, 3> const& in, unsigned char alpha, device::stream_t stream) {
  internal::check_interleaved("convert", out.device, in.device, in.extents, out.extents, "in");
  Array<uchar4, 2> o = out;
  Array<unsigned char, 3> i = in;
  internal::for_each_pixel(
      out.extents,
      [=](int x, int y) {
        unsigned char v[4] = {0, 0, 0, alpha};
        for (int c = 0; c < static_cast<int>(i.extents.z); ++c) v[c] = element(i, x, y, c);
        element(o, x, y) = make_uchar4(v[0], v[1], v[2], v[3]);
      },
      stream);
}

void convert(Array<float, 3>& out, Array<float4, 2> const& in, device::stream_t stream) {
  internal::check_interleaved("convert", out.device, in.device, out.extents, in.extents, "out");
  Array<float, 3> o = out;
  Array<float4, 2> i = in;
  internal::for_each_pixel(
      in.extents,
      [=](int x, int y) {
        float4 v = element(i, x, y);
        float c4[4] = {v.x, v.y, v.z, v.w};
        for (int c = 0; c < static_cast<int>(o.extents.z); ++c) element(o, x, y, c) = c4[c];
      },
      stream);
}

void convert(Array<unsigned char, 3>& out, Array<uchar4, 2> const& in, device::stream_t stream) {
  internal::check_interleaved("convert", out.device, in.device, out.extents, in.extents, "out");
  Array<unsigned char, 3> o = out;
  Array<uchar4, 2> i = in;
  internal::for_each_pixel(
      in.extents,
      [=](int x, int y) {
        uchar4 v = element(i, x, y);
        unsigned char c4[4] = {v.x, v.y, v.z, v.w};
        for (int c = 0; c < static_cast<int>(o.extents.z); ++c) element(o, x, y, c) = c4[c];
      },
      stream);
}

template <class U, class V, int N>
void convert(Array<U, N>& out, Array<V, N> const& in, device::stream_t stream) {
  Array<U, 4> o = internal::as4D(out);
  Array<V, 4> i = internal::as4D(in);
  internal::check_arguments_same_device("convert", "out", o.device, "in", i.device);
  if (i.device == -1) throw std::runtime_error("convert: memory of the arrays must be on the device");
  if (o.extents.x != i.extents.x || o.extents.y != i.extents.y || o.extents.z != i.extents.z ||
      o.extents.w != i.extents.w)
    throw std::runtime_error("convert: extents mismatch\n 'in'  extents are " + internal::str_extents(i.extents) +
                             "\n 'out' extents are " + internal::str_extents(o.extents) + "\n");
  using CU = internal::Components<U>;
  using CV = internal::Components<V>;
  static_assert(CU::n == CV::n, "convert casts between types of the same number of components");
  internal::forEachElement4(
      i.extents,
      [=](int x, int y, int z, int w) {
        V v = element(i, x, y, z, w);
        U u{};
        for (int c = 0; c < CU::n; ++c) CU::at(u, c) = static_cast<typename CU::scalar>(CV::at(v, c));
        element(o, x, y, z, w) = u;
      },
      stream);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

#define KETRA_CAST_N(U, V, N) template void convert<U, V, N>(Array<U, N>&, Array<V, N> const&, device::stream_t);
#define KETRA_CAST(U, V) KETRA_CAST_N(U, V, 1) KETRA_CAST_N(U, V, 2) KETRA_CAST_N(U, V, 3) KETRA_CAST_N(U, V, 4)
#define KETRA_CASTS(A, B, C) \
  KETRA_CAST(A, B) KETRA_CAST(A, C) KETRA_CAST(B, A) KETRA_CAST(B, C) KETRA_CAST(C, A) KETRA_CAST(C, B)
KETRA_CASTS(unsigned char, int, float)
KETRA_CASTS(uchar2, int2, float2)
KETRA_CASTS(uchar4, int4, float4)
#undef KETRA_CASTS
#undef KETRA_CAST
#undef KETRA_CAST_N

void convert_host(Array<uchar4, 2>& out, Array<float, 3> const& in, bool normalized, unsigned char alpha) {
  internal::check_arguments_same_device("convert_host", "out", out.device, "in", in.device);
  if (out.device != -1) throw std::runtime_error("convert_host: memory of the arrays must be on the host");
  internal::check_planar_extents("convert_host", in.extents, out.extents, "in");
  internal::for_each_pixel_host(out.extents, internal::uchar4_from_planar(out, in, normalized, alpha));
}

void convert_host(Array<float, 3>& out, Array<uchar4, 2> const& in, bool normalize) {
  internal::check_arguments_same_device("convert_host", "out", out.device, "in", in.device);
  if (out.device != -1) throw std::runtime_error("convert_host: memory of the arrays must be on the host");
  internal::check_planar_extents("convert_host", out.extents, in.extents, "out");
  internal::for_each_pixel_host(in.extents, internal::planar_from_uchar4(out, in, normalize));
}

}  // namespace ketra
