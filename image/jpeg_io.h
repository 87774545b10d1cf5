#pragma once

#include <vector>

// libjpeg set-up behind CTensor<float>::readFromJPEG. Every failure is a std::runtime_error whose
// text starts with the caller's name `who`; the decompressor is destroyed and the file closed
// before the throw.
namespace jpeg_io {

struct JpegPixels {
  int width = 0;
  int height = 0;
  std::vector<unsigned char> rgb;  // 3 bytes per pixel, rows top to bottom
};

// Reads a baseline or progressive 8-bit JPEG, greyscale or colour, as RGB. CMYK files are
// refused, and so is a file that ends before its image data does or that declares more than
// 2^26 pixels.
JpegPixels read_jpeg(const char* filename, const char* who);

}  // namespace jpeg_io
