#include "src/stereo/labels_to_depth.h"

#include <cstddef>
#include <stdexcept>
#include <vector>

#include "ketra/check_error.h"
#include "ketra/tools.h"
#include "src/render/device_arrays.h"
#include "src/render/point_batches.h"
#include "src/stereo/depthmap_estimation_kernels.h"

using namespace depthmap_estimation_kernels;

device::Error convert_labels_to_depth(ketra::Array<float, 2>& labels, int num_labels, float depth_first,
                                      float depth_last) {
  const float a = 1.0f / depth_first;
  const float step = (1.0f / depth_last - a) / static_cast<float>(num_labels - 1);
  return convert_labels_to_depth_kernel<true>(render_launch::pixel_shape(labels.extents.x, labels.extents.y), labels,
                                              a, step);
}

void shift_dims(ketra::Array<float, 3>& result, ketra::Array<float, 3> const& input) {
  const uint3 in = input.extents, out = result.extents;
  if (in.x != out.y || in.y != out.z || in.z != out.x) throw std::runtime_error("shift_dims: dimensions wrong!");
  // Tiles of 32 x 32 of the (x, z) plane, one y per grid row.
  shift_dims_kernel<8>({device::Dim3(device::blocksFor(in.x, 32), in.y, device::blocksFor(in.z, 32)),
                        device::Dim3(32, 1, 4)},
                       result, input);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

void test_shift_dims() {
  constexpr unsigned int X = 160, Y = 120, Z = 32;
  std::vector<float> values(X * Y * Z), shifted(values.size(), 0.0f);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i);  // z * 19200 + y * 160 + x
  ketra::Array<float, 3> input = allocate_pitched<float, 3>(X, Y, Z);
  ketra::Array<float, 3> result = allocate_pitched<float, 3>(Z, X, Y);
  ketra::arrayCopy(input, ketra::arrayFromHostMemory(values.data(), X, Y, Z));
  ketra::Array<float, 3> host_result = ketra::arrayFromHostMemory(shifted.data(), Z, X, Y);
  ketra::arrayCopy(result, host_result);
  shift_dims(result, input);
  ketra::arrayCopy(host_result, result);
  ketra::freeArray(input);
  ketra::freeArray(result);
  for (unsigned int y = 0; y < Y; ++y)
    for (unsigned int x = 0; x < X; ++x)
      for (unsigned int z = 0; z < Z; ++z)
        if (shifted[(y * X + x) * Z + z] != values[(z * Y + y) * X + x])
          throw std::runtime_error("test_shift_dims failed");
}
