#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>

#include "image/CTensor.h"
#include "image/EInvalidFileFormat.h"
#include "image/image_format.h"
#include "image/jpeg_io.h"
#include "image/png_io.h"

namespace {

// Byte-wise reading of a PPM or PGM file. `who` names the reader in its error texts.
class ByteReader {
 public:
  ByteReader(const char* filename, const char* who) : fp_(std::fopen(filename, "rb")), name_(filename), who_(who) {
    if (fp_ == nullptr) throw std::runtime_error(who_ + ": Cannot open file " + name_ + ": " + std::strerror(errno));
    struct stat st;
    if (fstat(fileno(fp_), &st) == 0 && S_ISREG(st.st_mode)) size_ = st.st_size;
  }
  ~ByteReader() { std::fclose(fp_); }

  [[noreturn]] void refuse(const std::string& cause) const {
    throw std::runtime_error(who_ + ": File " + name_ + " " + cause);
  }
  ByteReader(const ByteReader&) = delete;
  ByteReader& operator=(const ByteReader&) = delete;

  int get() { return std::fgetc(fp_); }
  int peek() {
    const int c = get();
    if (c != EOF) std::ungetc(c, fp_);
    return c;
  }

  // A regular file must hold every sample its header promises; this is checked before the
  // storage is allocated, so a short file cannot ask for gigabytes. Streams of unknown length
  // read -1 past their end instead.
  void expect_bytes(long long count) {
    if (size_ < 0) return;
    const long position = std::ftell(fp_);
    if (position >= 0 && count > size_ - position)
      throw std::runtime_error(who_ + ": File " + name_ + " is truncated");
  }

 private:
  std::FILE* fp_;
  std::string name_;
  std::string who_;
  long long size_ = -1;
};

bool is_digit(int c) { return c >= '0' && c <= '9'; }
bool is_blank_or_line_end(int c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Runs over the decimal digits starting at c; c ends on the first byte that is not a digit.
int read_decimal(ByteReader& in, int& c, const char* format) {
  long long value = 0;
  while (is_digit(c)) {
    value = value * 10 + (c - '0');
    if (value > INT_MAX) throw EInvalidFileFormat(format);
    c = in.get();
  }
  return static_cast<int>(value);
}

struct NetpbmHeader {
  int kind = EOF;  // the byte behind 'P'
  int width = 0;
  int height = 0;
};

// The header up to the height and the blank or line end behind it, shared by PPM and PGM.
// The kind byte is checked by the caller before anything else is read.
NetpbmHeader read_header_to_height(ByteReader& in, const char* format, int kind_a, int kind_b) {
  NetpbmHeader h;
  int c;
  do c = in.get();
  while (c != 'P' && c != EOF);
  h.kind = in.get();
  if (h.kind != kind_a && h.kind != kind_b) throw EInvalidFileFormat(format);
  do c = in.get();
  while (c != EOF && !is_blank_or_line_end(c));
  for (;;) {  // comment lines and empty lines
    c = in.peek();
    if (c == '#') {
      do c = in.get();
      while (c != EOF && c != '\n');
    } else if (c == '\n') {
      in.get();
    } else {
      break;
    }
  }
  c = in.get();
  const bool width_given = is_digit(c);
  h.width = read_decimal(in, c, format);
  while (c != EOF && !is_digit(c) && is_blank_or_line_end(c)) c = in.get();
  const bool height_given = is_digit(c);
  h.height = read_decimal(in, c, format);
  // A size that is not two positive whole numbers would give an empty or nonsense image.
  if (!width_given || !height_given || h.width <= 0 || h.height <= 0)
    in.refuse("has no valid image size in its header (two positive whole numbers)");
  while (c != EOF && !is_blank_or_line_end(c)) c = in.get();
  return h;
}

// Bytes as floats, pixel by pixel in row order, byte k of a pixel to plane k; -1 past the end.
void read_samples(ByteReader& in, CTensor<float>& t, const NetpbmHeader& h, int planes, const char* format) {
  const long long count = static_cast<long long>(h.width) * h.height * planes;
  in.expect_bytes(count);
  if (count > INT_MAX) throw EInvalidFileFormat(format);
  t.setSize(h.width, h.height, planes);
  const std::size_t plane = static_cast<std::size_t>(h.width) * static_cast<std::size_t>(h.height);
  for (std::size_t i = 0; i < plane; ++i)
    for (int z = 0; z < planes; ++z) {
      const int c = in.get();
      t.data[static_cast<std::size_t>(z) * plane + i] = c == EOF ? -1.0f : static_cast<float>(c);
    }
}

}  // namespace

template <>
void CTensor<float>::readFromImage(const char* filename) {
  switch (image_format_from_name(filename)) {
    case ImageFormat::PPM: readFromPPM(filename); break;
    case ImageFormat::PGM: readFromPGM(filename); break;
    case ImageFormat::PNG: readFromPNG(filename, false); break;
    case ImageFormat::JPEG: readFromJPEG(filename); break;
  }
}

template <>
void CTensor<float>::readFromPNG(const char* filename, bool ignoreAlpha) {
  const png_io::PngRows png =
      png_io::read_png(filename, "CTensor::readFromPNG", png_io::Accept::Colour,
                       "CTensor::readFromPNG: Format not supported");
  const int planes = ignoreAlpha ? 3 : png.channels;
  setSize(png.width, png.height, planes);
  for (int y = 0; y < png.height; ++y) {
    const unsigned char* row = png.bytes.data() + png.rowbytes * static_cast<std::size_t>(y);
    for (int x = 0; x < png.width; ++x)
      for (int z = 0; z < planes; ++z)
        (*this)(x, y, z) = static_cast<float>(row[static_cast<std::size_t>(x) * png.channels + z]);
  }
}

template <>
void CTensor<float>::readFromJPEG(const char* filename) {
  const jpeg_io::JpegPixels jpeg = jpeg_io::read_jpeg(filename, "CTensor::readFromJPEG");
  setSize(jpeg.width, jpeg.height, 3);
  for (int y = 0; y < jpeg.height; ++y)
    for (int x = 0; x < jpeg.width; ++x)
      for (int z = 0; z < 3; ++z)
        (*this)(x, y, z) = static_cast<float>(jpeg.rgb[(static_cast<std::size_t>(y) * jpeg.width + x) * 3 + z]);
}

// Samples are always single bytes, taken as they are: a maximum value outside 1 to 255 (two-byte
// samples, or none at all) is refused rather than read wrongly.
template <>
void CTensor<float>::readFromPPM(const char* filename) {
  ByteReader in(filename, "CTensor::readFromPPM");
  const NetpbmHeader h = read_header_to_height(in, "PPM", '5', '6');
  int c;
  do c = in.get();
  while (c != EOF && !is_digit(c));
  long long maximum = 0;
  for (; is_digit(c) && maximum <= 65536; c = in.get()) maximum = maximum * 10 + (c - '0');
  if (maximum < 1 || maximum > 255)
    in.refuse("has the maximum sample value " + std::to_string(maximum) +
              "; only 1 to 255 (one byte per sample) is read");
  while (is_digit(c)) c = in.get();
  while (c != EOF && c != '\n') c = in.get();
  read_samples(in, *this, h, h.kind == '5' ? 1 : 3, "PPM");
}

// There is no step for the maximum value: the pixel bytes start right behind the height, so
// the maximum value's digits and line end are read as the first pixels. Kept as it stands.
template <>
void CTensor<float>::readFromPGM(const char* filename) {
  ByteReader in(filename, "CTensor::readFromPGM");
  const NetpbmHeader h = read_header_to_height(in, "PGM", '5', '5');
  read_samples(in, *this, h, 1, "PGM");
}
