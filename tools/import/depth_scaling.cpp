#include "tools/import/depth_scaling.h"

#include <cmath>

namespace importer {
namespace {

bool fits(double scale, double largest) { return scale * largest * 1000 < 65535.5; }

}  // namespace

double scale_for_integer_depths(double depth_scale) { return depth_scale / 1000; }

double scale_for_float_depths(double largest, double median) {
  int exponent = 0;
  while (!fits(std::pow(10.0, exponent), largest) && exponent > -30) --exponent;
  if (exponent == 0)
    while (std::pow(10.0, exponent) * median < 1 && fits(std::pow(10.0, exponent + 1), largest) && exponent < 30)
      ++exponent;
  return std::pow(10.0, exponent);
}

}  // namespace importer
