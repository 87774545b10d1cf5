#include "image/CMatrix.h"

#include <cstring>

#include "image/png_io.h"

template <>
void CMatrix<unsigned short>::readFromPNG(const char* filename) {
  const png_io::PngRows png =
      png_io::read_png(filename, "CMatrix::readFromPNG", png_io::Accept::Grey8Or16,
                       "CMatrix::readFromPNG: Format not supported.  Expected Greyscale image with 8 or 16 bit per channel");
  setSize(png.width, png.height);
  for (int y = 0; y < png.height; ++y) {
    const unsigned char* row = png.bytes.data() + png.rowbytes * static_cast<std::size_t>(y);
    for (int x = 0; x < png.width; ++x) {
      unsigned short v;
      if (png.bit_depth == 16) {
        std::memcpy(&v, row + 2 * static_cast<std::size_t>(x), sizeof v);  // already in machine order
      } else {
        v = row[x];  // widened without scaling
      }
      (*this)(x, y) = v;
    }
  }
}
