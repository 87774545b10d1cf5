#include "src/io/save_depthmap_stack.h"

#include <algorithm>
#include <cstddef>

#include "ketra/dump.h"
#include "ketra/tools.h"

void saveDepthmapStack(const std::vector<CMatrix<float>>& depthmaps, const std::string& path) {
  // Without maps the extents are zero, which the allocation refuses with its own message.
  const unsigned int width = depthmaps.empty() ? 0 : static_cast<unsigned int>(depthmaps[0].xSize);
  const unsigned int height = depthmaps.empty() ? 0 : static_cast<unsigned int>(depthmaps[0].ySize);
  ketra::Array<float, 4> stack = ketra::mallocHostArray<float>(
      make_uint4(width, height, static_cast<unsigned int>(depthmaps.size()), 1), ketra::Packed);
  // Every plane takes the first map's size. A map with fewer elements fills what it has and the
  // rest of its plane stays 0, rather than reading past its storage.
  const std::size_t plane = static_cast<std::size_t>(width) * height;
  for (std::size_t i = 0; i < depthmaps.size(); ++i) {
    float* dst = stack.data + i * plane;
    const std::size_t available =
        std::min(plane, static_cast<std::size_t>(depthmaps[i].xSize) * static_cast<std::size_t>(depthmaps[i].ySize));
    std::copy(depthmaps[i].data, depthmaps[i].data + available, dst);
    std::fill(dst + available, dst + plane, 0.0f);
  }
  ketra::writeArrayToFile(ketra::internal::decreaseArrayDimension<float, 4, 3>(stack), path);
  ketra::freeArray(stack);
}
