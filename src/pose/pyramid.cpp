#include "src/pose/pyramid.h"

#include <cmath>

#include "ketra/algorithms/transform.h"
#include "ketra/filtering.h"
#include "ketra/tools.h"
#include "src/render/device_arrays.h"

int pyramid_levels(int height, int min_height, float pyramid_factor) {
  const float ratio = static_cast<float>(min_height) / static_cast<float>(height);
  return static_cast<int>(std::floor(std::log(ratio) / std::log(pyramid_factor)));
}

PyramidLevel pyramid_level(int width, int height, float pyramid_factor, int level) {
  const float s = std::pow(pyramid_factor, static_cast<float>(level));
  return {s, static_cast<unsigned int>(std::floor(static_cast<float>(width) * s + 0.5f)),
          static_cast<unsigned int>(std::floor(static_cast<float>(height) * s + 0.5f))};
}

ketra::Array<uchar4, 2> level_image(ketra::Array<uchar4, 2> const& image, PyramidLevel const& level) {
  // downsample replaces the memory it shrinks, so it works on a copy.
  ketra::Array<uchar4, 2> copy = allocate_pitched<uchar4, 2>(image.extents.x, image.extents.y, 1);
  ketra::arrayCopy(copy, image);
  ketra::Array<uchar4, 4> shrunk = ketra::internal::as4D(copy);
  ketra::downsample(shrunk, make_uint3(level.width, level.height, 1));
  return ketra::internal::decreaseArrayDimension<uchar4, 4, 2>(shrunk);
}

void image_gradients(ketra::Array<float, 3>& gradients, ketra::Array<float, 3> const& image) {
  const ketra::Filter<float, 3> central_difference{{-0.5f, 0.0f, 0.5f}, 1};
  const ketra::Array<float, 4> in = ketra::internal::as4D(image);
  const ketra::Array<float, 4> all = ketra::internal::as4D(gradients);
  ketra::Array<float, 4> along_x = ketra::block(all, ketra::Range(), ketra::Range(), ketra::Range(0, 2));
  ketra::Array<float, 4> along_y = ketra::block(all, ketra::Range(), ketra::Range(), ketra::Range(3, 5));
  ketra::filterX<float, float, 3>(along_x, in, central_difference, ketra::BorderMirror);
  ketra::filterY<float, float, 3>(along_y, in, central_difference, ketra::BorderMirror);
}
