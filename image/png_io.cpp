#include "image/png_io.h"

#include <png.h>
#include <sys/stat.h>

#include <bit>
#include <csetjmp>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

namespace png_io {
namespace {

// The steps that libpng may leave through longjmp live in these small functions, which hold no
// C++ objects with destructors and only report success or failure to their caller.

bool read_header(png_structp png, png_infop info, std::FILE* fp) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, fp);
  png_set_sig_bytes(png, 8);
  png_read_info(png, info);
  return true;
}

bool prepare_rows(png_structp png, png_infop info, bool swap16, std::size_t* rowbytes) {
  if (setjmp(png_jmpbuf(png))) return false;
  if (swap16) png_set_swap(png);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  *rowbytes = png_get_rowbytes(png, info);
  return true;
}

bool read_rows(png_structp png, png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_image(png, rows);
  return true;
}

bool start_write(png_structp png, std::FILE* fp) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_init_io(png, fp);
  return true;
}

bool write_header(png_structp png, png_infop info, int width, int height, int bit_depth, int color_type) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), bit_depth, color_type,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  // 16-bit samples go big-endian into the file; swapping takes them from the machine's order.
  if (bit_depth == 16 && std::endian::native == std::endian::little) png_set_swap(png);
  return true;
}

bool write_rows(png_structp png, png_infop info, png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_write_image(png, rows);
  png_write_end(png, info);
  return true;
}

// libpng's own reports would add lines to standard error beside the exception that says what
// failed, so errors only jump back to the failing step and warnings are dropped.
void error_jump(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void ignore_warning(png_structp, png_const_charp) {}

// Deflate expands data at most 1032 times, so a file shorter than its rows / 1032 is cut short
// whatever it claims. Checked before the rows are allocated.
bool holds_rows(std::FILE* fp, std::size_t rowbytes, int height) {
  struct stat st;
  if (fstat(fileno(fp), &st) != 0 || !S_ISREG(st.st_mode)) return true;
  const double needed = static_cast<double>(rowbytes) * height;
  return needed <= 1032.0 * static_cast<double>(st.st_size) + 1024.0;
}

bool accepted(Accept accept, int color_type, int bit_depth) {
  switch (accept) {
    case Accept::Rgb8OrRgba8:
      return (color_type == PNG_COLOR_TYPE_RGB || color_type == PNG_COLOR_TYPE_RGBA) && bit_depth == 8;
    case Accept::Grey8Or16:
      return color_type == PNG_COLOR_TYPE_GRAY && (bit_depth == 8 || bit_depth == 16);
  }
  return false;
}

[[noreturn]] void fail(const char* who, const std::string& what) {
  throw std::runtime_error(std::string(who) + ": " + what);
}

// One side of libpng on one file: the file, then the structures. Whatever exists is released when
// the session ends, so also before a failure reaches the caller.
template <bool kRead>
struct Session {
  std::FILE* fp;
  png_structp png = nullptr;
  png_infop info = nullptr;

  Session(const char* filename, const char* who) : fp(std::fopen(filename, kRead ? "rb" : "wb")) {
    if (fp == nullptr) fail(who, std::string("Cannot open file ") + filename);
  }
  ~Session() {
    png_infopp infop = info != nullptr ? &info : nullptr;
    if (png != nullptr && kRead) png_destroy_read_struct(&png, infop, nullptr);
    if (png != nullptr && !kRead) png_destroy_write_struct(&png, infop);
    if (fp != nullptr) std::fclose(fp);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void create_structures(const char* who) {
    png = kRead ? png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, error_jump, ignore_warning)
                : png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, error_jump, ignore_warning);
    if (png == nullptr) fail(who, kRead ? "Could not create png read struct" : "Could not create png write struct");
    info = png_create_info_struct(png);
    if (info == nullptr) fail(who, "Could not create png info struct");
  }
};

}  // namespace

PngRows read_png(const char* filename, const char* who, Accept accept, const char* refusal) {
  Session<true> s(filename, who);
  png_byte signature[8];
  if (std::fread(signature, 1, 8, s.fp) != 8) fail(who, std::string("Could not read header of file ") + filename);
  if (png_sig_cmp(signature, 0, 8) != 0) fail(who, std::string("File ") + filename + " is not a PNG");
  s.create_structures(who);
  if (!read_header(s.png, s.info, s.fp)) fail(who, "png_init_io failed");

  PngRows result;
  result.width = static_cast<int>(png_get_image_width(s.png, s.info));
  result.height = static_cast<int>(png_get_image_height(s.png, s.info));
  result.channels = png_get_channels(s.png, s.info);
  result.bit_depth = png_get_bit_depth(s.png, s.info);
  if (!accepted(accept, png_get_color_type(s.png, s.info), result.bit_depth)) throw std::runtime_error(refusal);

  // 16-bit samples are big-endian in the file; swapping gives the machine's order here.
  const bool swap16 = result.bit_depth == 16 && std::endian::native == std::endian::little;
  if (!prepare_rows(s.png, s.info, swap16, &result.rowbytes)) fail(who, "png_read_image failed");
  if (!holds_rows(s.fp, result.rowbytes, result.height)) fail(who, std::string("File ") + filename + " is truncated");
  result.bytes.resize(result.rowbytes * static_cast<std::size_t>(result.height));
  std::vector<png_bytep> rows(static_cast<std::size_t>(result.height));
  for (int y = 0; y < result.height; ++y) rows[y] = result.bytes.data() + result.rowbytes * y;
  if (!read_rows(s.png, rows.data())) fail(who, "png_read_image failed");
  return result;
}

namespace {

// Writes height rows of rowbytes bytes each.
void write_rows_to(const char* filename, const char* who, int width, int height, int bit_depth, int color_type,
                   const unsigned char* bytes, std::size_t rowbytes) {
  Session<false> s(filename, who);
  s.create_structures(who);
  if (!start_write(s.png, s.fp)) fail(who, "png_init_io failed");
  if (!write_header(s.png, s.info, width, height, bit_depth, color_type)) fail(who, "png_write_info failed");
  std::vector<png_bytep> rows(static_cast<std::size_t>(height));
  for (int y = 0; y < height; ++y) rows[y] = const_cast<png_bytep>(bytes) + rowbytes * static_cast<std::size_t>(y);
  if (!write_rows(s.png, s.info, rows.data())) fail(who, "png_write_image failed");
  // What is still buffered reaches the disk at the close; a full disk shows there.
  std::FILE* fp = std::exchange(s.fp, nullptr);
  if (std::fclose(fp) != 0) fail(who, std::string("Cannot write file ") + filename);
}

}  // namespace

void write_png(const char* filename, const char* who, int width, int height, int channels,
               const std::vector<unsigned char>& interleaved) {
  const std::size_t rowbytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
  if (interleaved.size() != rowbytes * static_cast<std::size_t>(height))
    fail(who, std::string("the samples do not fill the image of ") + filename);
  write_rows_to(filename, who, width, height, 8, channels == 4 ? PNG_COLOR_TYPE_RGBA : (channels == 1 ? PNG_COLOR_TYPE_GRAY : PNG_COLOR_TYPE_RGB),
                interleaved.data(), rowbytes);
}

void write_png16(const char* filename, const char* who, int width, int height, const std::vector<uint16_t>& samples) {
  if (samples.size() != static_cast<std::size_t>(width) * static_cast<std::size_t>(height))
    fail(who, std::string("the samples do not fill the image of ") + filename);
  write_rows_to(filename, who, width, height, 16, PNG_COLOR_TYPE_GRAY,
                reinterpret_cast<const unsigned char*>(samples.data()), 2 * static_cast<std::size_t>(width));
}

}  // namespace png_io
