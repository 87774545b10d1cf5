#include "ketra/algorithms/basic.h"

#include <sstream>
#include <stdexcept>

#include "device/memory.h"
#include "ketra/algorithms/components.h"
#include "ketra/algorithms/scalar_ops.h"
#include "ketra/element_launch.h"
#include "ketra/tools.h"

namespace ketra {

namespace internal {

void check_on_device(int device) {
  if (device == -1) throw std::runtime_error("memory of the array must be on the device");
}

void sanity_check_arguments(Array<unsigned char, 4> const& a, Array<unsigned char, 4> const& b) {
  if (a.device == -1 || b.device == -1) throw std::runtime_error("memory of both arrays must be on the device");
  if (a.device != b.device) throw std::runtime_error("memory of both arrays must be on the same device");
  uint4 ea = a.extents, eb = b.extents;
  if (ea.x != eb.x || ea.y != eb.y || ea.z != eb.z || ea.w != eb.w) {
    std::ostringstream s;
    s << "extents mismatch" << "\n"
      << " extents of first operand are (" << ea.x << ", " << ea.y << ", " << ea.z << ", " << ea.w << ") "
      << " extents of second operand are (" << eb.x << ", " << eb.y << ", " << eb.z << ", " << eb.w << ") ";
    throw std::runtime_error(s.str());
  }
}

namespace {

template <class T, class Op>
void apply_value(Array<T, 4> a, T value, Op op, device::stream_t stream) {
  check_on_device(a.device);
  forEachElement4(
      a.extents,
      [=](int x, int y, int z, int w) {
        T& e = element(a, x, y, z, w);
        e = componentwise(e, value, op);
      },
      stream);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

template <class T, class Op>
void apply_array(Array<T, 4> a, Array<T, 4> b, Op op, device::stream_t stream) {
  sanity_check_arguments(asBytes(a), asBytes(b));
  forEachElement4(
      a.extents,
      [=](int x, int y, int z, int w) {
        T& e = element(a, x, y, z, w);
        e = componentwise(e, element(b, x, y, z, w), op);
      },
      stream);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

}  // namespace
}  // namespace internal

#define KETRA_ELEMENTWISE(name, Op)                                                           \
  template <class T, int N>                                                                   \
  void name(Array<T, N>& a, T value, device::stream_t stream) {                              \
    internal::apply_value(internal::as4D(a), value, internal::Op{}, stream);                  \
  }                                                                                           \
  template <class T, int N>                                                                   \
  void name(Array<T, N>& a, Array<T, N> const& b, device::stream_t stream) {                 \
    internal::apply_array(internal::as4D(a), internal::as4D(b), internal::Op{}, stream);      \
  }
KETRA_ELEMENTWISE(set, OpSet)
KETRA_ELEMENTWISE(add, OpAdd)
KETRA_ELEMENTWISE(sub, OpSub)
KETRA_ELEMENTWISE(mul, OpMul)
KETRA_ELEMENTWISE(div, OpDiv)
#undef KETRA_ELEMENTWISE

namespace {

template <class T, class R>
HOST_DEVICE inline void widen(R& r, T v) {
  if (v < r.x) r.x = v;
  if (v > r.y) r.y = v;
}

}  // namespace

// Two stages: stat_op_kernel reduces each row, then the row results are reduced.
template <class T>
typename MinMaxResult<T>::type MinMax(Array<T, 2>& a, device::stream_t stream) {
  using R = typename MinMaxResult<T>::type;
  internal::check_on_device(a.device);
  Array<T, 2> in = a;
  Array<R, 4> rows4 = mallocDeviceArray<R>(make_uint4(a.extents.y, 1, 1, 1), Packed);
  Array<R, 1> rows = internal::decreaseArrayDimension<R, 4, 1>(rows4);
  const int width = static_cast<int>(a.extents.x), height = static_cast<int>(a.extents.y);
  auto stat_op_kernel = [=](device::Index const& i) {
    int y = i.x();
    if (y >= height) return;
    R r{element(in, 0, y), element(in, 0, y)};
    for (int x = 1; x < width; ++x) widen(r, element(in, x, y));
    element(rows, y) = r;
  };
  device::launch(device::Dim3(device::blocksFor(a.extents.y, 128)), device::Dim3(128), stat_op_kernel, stream);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  auto final_kernel = [=](device::Index const& i) {
    if (i.x() != 0) return;
    R r = element(rows, 0);
    for (int y = 1; y < height; ++y) {
      widen(r, element(rows, y).x);
      widen(r, element(rows, y).y);
    }
    element(rows, 0) = r;
  };
  device::launch(device::Dim3(1), device::Dim3(1), final_kernel, stream);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  std::vector<R> result(a.extents.y);
  vectorCopy(result, rows);
  freeArray(rows4);
  return result[0];
}

template <class T>
T Min(Array<T, 2>& a, device::stream_t stream) {
  return MinMax(a, stream).x;
}
template <class T>
T Max(Array<T, 2>& a, device::stream_t stream) {
  return MinMax(a, stream).y;
}

#define KETRA_INSTANTIATE_N(F, T, N)                                                          \
  template void F<T, N>(Array<T, N>&, T, device::stream_t);                                   \
  template void F<T, N>(Array<T, N>&, Array<T, N> const&, device::stream_t);
#define KETRA_INSTANTIATE(F, T) \
  KETRA_INSTANTIATE_N(F, T, 1) KETRA_INSTANTIATE_N(F, T, 2) KETRA_INSTANTIATE_N(F, T, 3) KETRA_INSTANTIATE_N(F, T, 4)
#define KETRA_ARITHMETIC(T) \
  KETRA_INSTANTIATE(set, T) KETRA_INSTANTIATE(add, T) KETRA_INSTANTIATE(sub, T) KETRA_INSTANTIATE(mul, T) \
  KETRA_INSTANTIATE(div, T)
KETRA_ARITHMETIC(float)
KETRA_ARITHMETIC(float2)
KETRA_ARITHMETIC(float3)
KETRA_ARITHMETIC(float4)
KETRA_ARITHMETIC(double)
KETRA_ARITHMETIC(int)
KETRA_INSTANTIATE(set, unsigned int)
KETRA_INSTANTIATE(set, unsigned long long)
KETRA_INSTANTIATE(set, unsigned char)
KETRA_INSTANTIATE(set, uchar2)
KETRA_INSTANTIATE(set, uchar4)
KETRA_INSTANTIATE(set, ushort4)
KETRA_INSTANTIATE(set, int2)
KETRA_INSTANTIATE(set, int3)
KETRA_INSTANTIATE(set, int4)
#undef KETRA_ARITHMETIC
#undef KETRA_INSTANTIATE
#undef KETRA_INSTANTIATE_N

#define KETRA_MINMAX(T)                                                                       \
  template MinMaxResult<T>::type MinMax<T>(Array<T, 2>&, device::stream_t);                   \
  template T Min<T>(Array<T, 2>&, device::stream_t);                                          \
  template T Max<T>(Array<T, 2>&, device::stream_t);
KETRA_MINMAX(unsigned char)
KETRA_MINMAX(int)
KETRA_MINMAX(float)
#undef KETRA_MINMAX

}  // namespace ketra
