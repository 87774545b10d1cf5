#pragma once

#include "image/CMatrix.h"
#include "ketra/array.h"
#include "src/pose/gauss_newton_step.h"
#include "src/pose/pyramid.h"
#include "src/render/device_arrays.h"

// A pitched device copy of a host image; the caller frees it.
template <class T>
ketra::Array<T, 2> upload(CMatrix<T> const& image) {
  ketra::Array<T, 2> device_image = allocate_pitched<T, 2>(image.xSize, image.ySize, 1);
  const ketra::Array<T, 2> host = ketra::arrayFromHostMemory(image.data, image.xSize, image.ySize);
  ketra::arrayCopy(device_image, host);
  return device_image;
}

// The arrays of one pyramid level: the level's image, its gradients, the render buffer and the
// system arrays; the validity image only when asked for.
PoseLevelArrays allocate_level(ketra::Array<uchar4, 2> const& full_image, PyramidLevel const& level,
                               bool with_validity);

void free_level(PoseLevelArrays& a);
