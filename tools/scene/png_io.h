#pragma once

#include <cstdint>
#include <string>
#include <vector>

// The few PNG files the scene generator writes, and readers for the same two kinds so that
// tests can check them. Errors throw std::runtime_error with the function name and the path.
namespace scene {

// 8-bit RGB, rgb holds 3 * width * height bytes row by row.
void write_png_rgb8(const std::string& path, int width, int height, const std::vector<uint8_t>& rgb);

// 16-bit greyscale, values row by row.
void write_png_gray16(const std::string& path, int width, int height, const std::vector<uint16_t>& values);

struct Png16 {
  int width = 0, height = 0;
  std::vector<uint16_t> values;
};
struct PngRgb8 {
  int width = 0, height = 0;
  std::vector<uint8_t> rgb;
};

// Reads a 16-bit greyscale PNG (other formats are refused).
Png16 read_png_gray16(const std::string& path);

// Reads an 8-bit RGB PNG (other formats are refused).
PngRgb8 read_png_rgb8(const std::string& path);

}  // namespace scene
