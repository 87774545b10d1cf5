#include "formats/depth_png.h"

#include <cmath>

#include "image/png_io.h"

uint16_t depth_to_thousandths(double depth) {
  const double v = std::floor(depth * 1000.0 + 0.5);
  return v >= 1.0 && v <= 65535.0 ? static_cast<uint16_t>(v) : 0;
}

CMatrix<unsigned short> read_depth_png(const std::string& path) {
  CMatrix<unsigned short> m;
  m.readFromPNG(path.c_str());
  return m;
}

void write_depth_png(const std::string& path, int width, int height, const std::vector<uint16_t>& thousandths) {
  png_io::write_png16(path.c_str(), "write_depth_png", width, height, thousandths);
}
