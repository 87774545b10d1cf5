#include "ketra/image_export.h"

#include <iostream>

#include "image/CTensor.h"
#include "ketra/access.h"
#include "ketra/tools.h"

namespace {

// The array itself when it is on the host, else a packed host copy that the caller frees.
template <class T, int N>
ketra::Array<T, N> host_view(ketra::Array<T, N> const& a) {
  if (a.device == -1) return a;
  ketra::Array<T, 4> host = ketra::mallocHostArray<T>(ketra::internal::as4D(a).extents, ketra::Packed);
  ketra::Array<T, N> copy = ketra::internal::decreaseArrayDimension<T, 4, N>(host);
  ketra::arrayCopy(copy, a);
  return copy;
}

}  // namespace

namespace ketra {

template <>
void saveImage<unsigned char>(Array<unsigned char, 3> const& a, std::string const& path, bool invert) {
  if (a.extents.z != 3) {
    std::cout << __FILE__ << ":" << __LINE__
              << ": saveImage() does not support writing color image from Array with dimensions (" << a.extents.x
              << ", " << a.extents.y << ", " << a.extents.z << ")" << "\n";
    return;
  }
  Array<unsigned char, 3> host = host_view(a);
  CTensor<unsigned char> image(static_cast<int>(a.extents.x), static_cast<int>(a.extents.y), 3);
  for (int z = 0; z < 3; ++z)
    for (int y = 0; y < image.ySize; ++y)
      for (int x = 0; x < image.xSize; ++x) {
        const unsigned char v = element(host, x, y, z);
        image(x, y, z) = invert ? static_cast<unsigned char>(-v) : v;
      }
  if (host.data != a.data) freeArray(host);
  image.writeToImage(path.c_str());
}

}  // namespace ketra

void saveImageToPNG(ketra::Array<uchar4, 2> const& a, std::string const& path) {
  ketra::Array<uchar4, 2> host = host_view(a);
  CTensor<float> image(static_cast<int>(a.extents.x), static_cast<int>(a.extents.y), 3);
  for (int y = 0; y < image.ySize; ++y)
    for (int x = 0; x < image.xSize; ++x) {
      const uchar4 v = ketra::element(host, x, y);
      image(x, y, 0) = v.x;
      image(x, y, 1) = v.y;
      image(x, y, 2) = v.z;
    }
  if (host.data != a.data) ketra::freeArray(host);
  image.writeToPNG(path.c_str());
}
