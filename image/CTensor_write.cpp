#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

#include "image/CTensor.h"
#include "image/image_format.h"
#include "image/png_io.h"
#include "image/sample_conversion.h"

namespace {

// A file for writing; a name that cannot be opened is an error rather than a write to nowhere.
class OutputFile {
 public:
  OutputFile(const char* filename, const char* who) : fp_(std::fopen(filename, "wb")) {
    if (fp_ == nullptr)
      throw std::runtime_error(std::string(who) + ": Cannot open file " + filename + ": " + std::strerror(errno));
  }
  ~OutputFile() { std::fclose(fp_); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  std::FILE* get() const { return fp_; }

 private:
  std::FILE* fp_;
};

// Interleaves the planes of a 3 or 4-plane tensor into PNG rows and writes them.
template <typename T, typename ToByte>
void write_tensor_png(const CTensor<T>& t, const char* filename, ToByte to_byte) {
  if (t.zSize != 3 && t.zSize != 4) throw std::runtime_error("CTensor::writeToPNG: zSize must be 3 or 4");
  std::vector<unsigned char> rows(t.size());
  std::size_t k = 0;
  for (int y = 0; y < t.ySize; ++y)
    for (int x = 0; x < t.xSize; ++x)
      for (int z = 0; z < t.zSize; ++z) rows[k++] = to_byte(t(x, y, z));
  png_io::write_png(filename, "CTensor::writeToPNG", t.xSize, t.ySize, t.zSize, rows);
}

}  // namespace

template <>
void CTensor<unsigned char>::writeToImage(const char* filename) {
  switch (image_format_from_name(filename)) {
    case ImageFormat::PPM: writeToPPM(filename); break;
    case ImageFormat::PGM: writeToPGM(filename); break;
    case ImageFormat::PNG: writeToPNG(filename); break;
    case ImageFormat::JPEG: throw std::runtime_error("Image file format not supported");
  }
}

// Planes 0, 1 and 2 as the bytes of each pixel.
template <>
void CTensor<unsigned char>::writeToPPM(const char* filename) const {
  OutputFile out(filename, "CTensor::writeToPPM");
  std::fprintf(out.get(), "P6 \n");
  std::fprintf(out.get(), "%d %d \n255\n", xSize, ySize);
  for (int y = 0; y < ySize; ++y)
    for (int x = 0; x < xSize; ++x)
      for (int z = 0; z < 3; ++z) std::fputc(z < zSize ? (*this)(x, y, z) : 0, out.get());
}

// All planes tiled into one grey image, floor(sqrt(zSize)) tiles high; tiles beyond the last
// plane are black.
template <>
void CTensor<unsigned char>::writeToPGM(const char* filename) const {
  OutputFile out(filename, "CTensor::writeToPGM");
  const int rows = static_cast<int>(std::floor(std::sqrt(static_cast<double>(zSize))));
  const int cols = rows > 0 ? static_cast<int>(std::ceil(static_cast<double>(zSize) / rows)) : 0;
  std::fprintf(out.get(), "P5 \n");
  std::fprintf(out.get(), "%d %d \n255\n", cols * xSize, rows * ySize);
  for (int r = 0; r < rows; ++r)
    for (int y = 0; y < ySize; ++y)
      for (int c = 0; c < cols; ++c) {
        const int z = r * cols + c;
        for (int x = 0; x < xSize; ++x) std::fputc(z < zSize ? (*this)(x, y, z) : 0, out.get());
      }
}

template <>
void CTensor<unsigned char>::writeToPNG(const char* filename) const {
  write_tensor_png(*this, filename, [](unsigned char v) { return v; });
}

template <>
void CTensor<float>::writeToPNG(const char* filename) const {
  write_tensor_png(*this, filename, truncated_low_byte);
}
