#include "src/stereo/sgm_minima.h"

#include <cfloat>
#include <stdexcept>
#include <string>

#include "device/launch.h"
#include "ketra/access.h"
#include "ketra/check_error.h"
#include "ketra/tools.h"
#include "src/render/point_batches.h"

void sgm_path_minima(ketra::Array<float, 3>& minima, ketra::Array<float, 3> const& S) {
  if (minima.extents.x != S.extents.y || minima.extents.y != S.extents.z || minima.extents.z != 2)
    throw std::runtime_error("sgm_path_minima: minima " + ketra::internal::str_extents(minima.extents) +
                             " does not fit the path costs " + ketra::internal::str_extents(S.extents));
  const int L = static_cast<int>(S.extents.x), W = static_cast<int>(S.extents.y), H = static_cast<int>(S.extents.z);
  const auto shape = render_launch::pixel_shape(W, H);
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    const int x = idx.x(), y = idx.y();
    if (x >= W || y >= H) return;
    const float* s = &ketra::element(S, 0, x, y);
    int b = 0;
    for (int l = 1; l < L; ++l)
      if (s[l] < s[b]) b = l;
    float second = FLT_MAX;
    for (int l = 0; l < L; ++l) {
      const bool valley = (l == 0 || s[l] <= s[l - 1]) && (l == L - 1 || s[l] <= s[l + 1]);
      if (valley && (l < b - 1 || l > b + 1) && s[l] < second) second = s[l];
    }
    ketra::element(minima, x, y, 0) = s[b];
    ketra::element(minima, x, y, 1) = second;
  });
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}
