#include "src/pose/pose_level.h"

#include "ketra/algorithms/conversion.h"
#include "ketra/check_error.h"
#include "ketra/tools.h"

PoseLevelArrays allocate_level(ketra::Array<uchar4, 2> const& full_image, PyramidLevel const& level,
                               bool with_validity) {
  PoseLevelArrays a{};
  a.image = level_image(full_image, level);
  ketra::Array<float, 3> image_float = allocate_pitched<float, 3>(level.width, level.height, 3);
  ketra::convert<float>(image_float, a.image, true);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  a.gradients = allocate_pitched<float, 3>(level.width, level.height, 6);
  image_gradients(a.gradients, image_float);
  ketra::freeArray(image_float);
  a.rendered = createRenderBuffer(static_cast<int>(level.width), static_cast<int>(level.height));
  ketra::Array<float, 4> system = ketra::mallocDeviceArray<float>(make_uint4(level.width, level.height, 21, 1),
                                                                  ketra::Packed);
  a.system = ketra::internal::decreaseArrayDimension<float, 4, 3>(system);
  ketra::Array<float, 4> normal_matrix = ketra::mallocDeviceArray<float>(make_uint4(6, 6, 1, 1), ketra::Packed);
  a.normal_matrix = ketra::internal::decreaseArrayDimension<float, 4, 2>(normal_matrix);
  ketra::Array<float, 4> gradient = ketra::mallocDeviceArray<float>(make_uint4(6, 1, 1, 1), ketra::Packed);
  a.gradient = ketra::internal::decreaseArrayDimension<float, 4, 2>(gradient);
  if (with_validity) a.validity = allocate_pitched<uchar4, 2>(level.width, level.height, 1);
  return a;
}

void free_level(PoseLevelArrays& a) {
  ketra::freeArray(a.image);
  ketra::freeArray(a.gradients);
  freeRenderBuffer(a.rendered);
  ketra::freeArray(a.system);
  ketra::freeArray(a.normal_matrix);
  ketra::freeArray(a.gradient);
  if (a.validity.data != nullptr) ketra::freeArray(a.validity);
}

