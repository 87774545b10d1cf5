#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// libpng set-up shared by the PNG readers and writers of CMatrix and CTensor. Every failure is a
// std::runtime_error whose text starts with the caller's name `who` (for example
// "CTensor::readFromPNG"); libpng structures are destroyed and the file closed before the throw.
namespace png_io {

struct PngRows {
  int width = 0;
  int height = 0;
  int channels = 0;   // samples per pixel as stored in the file
  int bit_depth = 0;  // bits per sample as stored in the file
  std::size_t rowbytes = 0;
  std::vector<unsigned char> bytes;  // height rows of rowbytes bytes, first file row first
};

// Which colour types and bit depths a reader takes; anything else is refused with `refusal`.
enum class Accept { Rgb8OrRgba8, Grey8Or16 };

// Reads a whole PNG. With Accept::Grey8Or16, 16-bit samples arrive in the machine's byte order.
PngRows read_png(const char* filename, const char* who, Accept accept, const char* refusal);

// Writes an 8-bit grey (channels 1), RGB (channels 3) or RGBA (channels 4) PNG from interleaved rows.
void write_png(const char* filename, const char* who, int width, int height, int channels,
               const std::vector<unsigned char>& interleaved);

// Writes a 16-bit greyscale PNG from samples row by row.
void write_png16(const char* filename, const char* who, int width, int height, const std::vector<uint16_t>& samples);

}  // namespace png_io
