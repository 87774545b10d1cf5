#include "tools/scene/png_io.h"

#include <png.h>

#include <cstdio>
#include <memory>
#include <stdexcept>

namespace scene {
namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

// libpng error handler: keeps the message and jumps back to the caller's setjmp.
void on_png_error(png_structp png, png_const_charp message) {
  if (auto* text = static_cast<std::string*>(png_get_error_ptr(png))) *text = message;
  png_longjmp(png, 1);
}

void on_png_warning(png_structp, png_const_charp) {}

File open_file(const char* function, const std::string& path, const char* mode) {
  File f(std::fopen(path.c_str(), mode), &std::fclose);
  if (!f) throw std::runtime_error(std::string(function) + ": cannot open " + path);
  return f;
}

// libpng reports errors by longjmp to the setjmp in the function that owns its structs; no C++
// frame lies in between, and the jump target frees the structs and throws.
void write_png(const char* function, const std::string& path, int width, int height, int colour_type,
               int bit_depth, const uint8_t* rows, size_t row_bytes) {
  File f = open_file(function, path, "wb");
  std::string error;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, on_png_error, on_png_warning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_write_struct(&png, nullptr);
    throw std::runtime_error(std::string(function) + ": out of memory for " + path);
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    throw std::runtime_error(std::string(function) + ": cannot write " + path + " (" + error + ")");
  }
  png_init_io(png, f.get());
  png_set_IHDR(png, info, width, height, bit_depth, colour_type, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (int y = 0; y < height; ++y) png_write_row(png, rows + static_cast<size_t>(y) * row_bytes);
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  if (std::fflush(f.get()) != 0) throw std::runtime_error(std::string(function) + ": cannot write " + path);
}

// Reads a PNG whose colour type and bit depth must match; returns the packed rows.
std::vector<uint8_t> read_png(const char* function, const std::string& path, int colour_type, int bit_depth,
                              int& width, int& height) {
  File f = open_file(function, path, "rb");
  png_byte signature[8];
  if (std::fread(signature, 1, 8, f.get()) != 8 || png_sig_cmp(signature, 0, 8) != 0)
    throw std::runtime_error(std::string(function) + ": not a PNG file: " + path);
  std::string error;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &error, on_png_error, on_png_warning);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    throw std::runtime_error(std::string(function) + ": out of memory for " + path);
  }
  std::vector<uint8_t> data;
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    throw std::runtime_error(std::string(function) + ": corrupt PNG file " + path + " (" + error + ")");
  }
  png_init_io(png, f.get());
  png_set_sig_bytes(png, 8);
  png_read_info(png, info);
  if (png_get_color_type(png, info) != colour_type || png_get_bit_depth(png, info) != bit_depth ||
      png_get_interlace_type(png, info) != PNG_INTERLACE_NONE) {
    png_destroy_read_struct(&png, &info, nullptr);
    throw std::runtime_error(std::string(function) + ": unexpected PNG format in " + path);
  }
  png_read_update_info(png, info);
  width = static_cast<int>(png_get_image_width(png, info));
  height = static_cast<int>(png_get_image_height(png, info));
  const size_t row_bytes = png_get_rowbytes(png, info);
  data.resize(row_bytes * height);
  for (int y = 0; y < height; ++y) png_read_row(png, data.data() + row_bytes * y, nullptr);
  png_destroy_read_struct(&png, &info, nullptr);
  return data;
}

}  // namespace

void write_png_rgb8(const std::string& path, int width, int height, const std::vector<uint8_t>& rgb) {
  if (width <= 0 || height <= 0 || rgb.size() != static_cast<size_t>(width) * height * 3)
    throw std::runtime_error("write_png_rgb8: size does not match the data for " + path);
  write_png("write_png_rgb8", path, width, height, PNG_COLOR_TYPE_RGB, 8, rgb.data(), 3 * static_cast<size_t>(width));
}

void write_png_gray16(const std::string& path, int width, int height, const std::vector<uint16_t>& values) {
  if (width <= 0 || height <= 0 || values.size() != static_cast<size_t>(width) * height)
    throw std::runtime_error("write_png_gray16: size does not match the data for " + path);
  // PNG keeps 16-bit samples big-endian, whatever the host order.
  std::vector<uint8_t> bytes(2 * values.size());
  for (size_t i = 0; i < values.size(); ++i) {
    bytes[2 * i] = static_cast<uint8_t>(values[i] >> 8);
    bytes[2 * i + 1] = static_cast<uint8_t>(values[i] & 0xFF);
  }
  write_png("write_png_gray16", path, width, height, PNG_COLOR_TYPE_GRAY, 16, bytes.data(),
            2 * static_cast<size_t>(width));
}

Png16 read_png_gray16(const std::string& path) {
  Png16 out;
  const std::vector<uint8_t> data = read_png("read_png_gray16", path, PNG_COLOR_TYPE_GRAY, 16, out.width, out.height);
  out.values.resize(data.size() / 2);
  for (size_t i = 0; i < out.values.size(); ++i)
    out.values[i] = static_cast<uint16_t>((data[2 * i] << 8) | data[2 * i + 1]);
  return out;
}

PngRgb8 read_png_rgb8(const std::string& path) {
  PngRgb8 out;
  out.rgb = read_png("read_png_rgb8", path, PNG_COLOR_TYPE_RGB, 8, out.width, out.height);
  return out;
}

}  // namespace scene
