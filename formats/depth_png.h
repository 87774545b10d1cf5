#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image/CMatrix.h"

// Depth maps are 16-bit grey PNG files in thousandths of the length unit of the view files
// (8-bit grey ones are read too); 0 marks a pixel without depth.

// The stored value of a depth, rounded to thousandths. A depth the file cannot hold (not above
// 0, rounding to 0, or from 65.5355 up) is left out as 0: an empty pixel only loses a sample,
// whereas the nearest value it could hold would be a wrong depth.
uint16_t depth_to_thousandths(double depth);

// The depth a stored value stands for.
inline double thousandths_to_depth(unsigned value) { return value / 1000.0; }

// Reads a depth PNG as it is stored. Throws std::runtime_error with the reader's text.
CMatrix<unsigned short> read_depth_png(const std::string& path);

// Writes width * height stored values, row by row. Throws std::runtime_error naming the file.
void write_depth_png(const std::string& path, int width, int height, const std::vector<uint16_t>& thousandths);
