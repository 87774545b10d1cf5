#include "image/jpeg_io.h"

#include <cerrno>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

// After <cstddef> and <cstdio>: jpeglib.h needs FILE and size_t declared before it.
#include <jerror.h>
#include <jpeglib.h>

namespace jpeg_io {
namespace {

// The largest image read, in pixels. Compressed data does not bound the image it declares (a
// uniform image codes in almost no bits), so a few bytes could otherwise ask for gigabytes. A view
// this large would already need tens of gigabytes as particles.
constexpr long long kMaxPixels = 1LL << 26;

// libjpeg's default error handler ends the process; this one jumps back to the caller's setjmp
// with the message kept. Image data that ends early, at the end of the file or at a marker, is
// only a warning to libjpeg (it pads the rest with grey); it is refused at once, as an error.
struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX];
  bool truncated;
};

void on_error(j_common_ptr cinfo) {
  auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, err->message);
  std::longjmp(err->jump, 1);
}

void on_message(j_common_ptr cinfo, int msg_level) {
  const int code = cinfo->err->msg_code;
  if (msg_level >= 0 || (code != JWRN_JPEG_EOF && code != JWRN_HIT_MARKER)) return;
  auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
  err->truncated = true;
  std::longjmp(err->jump, 1);
}

// The steps that libjpeg may leave through longjmp live in these small functions, which hold no
// C++ objects with destructors and only report success or failure to their caller.

bool read_header(jpeg_decompress_struct* cinfo, ErrorManager* err, std::FILE* fp) {
  if (setjmp(err->jump)) return false;
  jpeg_stdio_src(cinfo, fp);
  jpeg_read_header(cinfo, TRUE);
  return true;
}

bool start(jpeg_decompress_struct* cinfo, ErrorManager* err) {
  if (setjmp(err->jump)) return false;
  cinfo->out_color_space = JCS_RGB;  // greyscale is widened to three equal samples
  jpeg_start_decompress(cinfo);
  return true;
}

// Rows are appended as they are decoded into room reserved but not yet touched, so a file that
// fails early costs memory for the rows it held, not for the image it declared.
bool read_rows(jpeg_decompress_struct* cinfo, ErrorManager* err, unsigned char* row, std::vector<unsigned char>* rgb) {
  if (setjmp(err->jump)) return false;
  const std::size_t row_bytes = static_cast<std::size_t>(cinfo->output_width) * 3;
  while (cinfo->output_scanline < cinfo->output_height) {
    jpeg_read_scanlines(cinfo, &row, 1);
    rgb->insert(rgb->end(), row, row + row_bytes);
  }
  jpeg_finish_decompress(cinfo);
  return true;
}

// Owns the decompressor and the file.
struct ReadSession {
  std::FILE* fp = nullptr;
  jpeg_decompress_struct cinfo{};
  ErrorManager err{};
  bool created = false;
  ~ReadSession() { close(); }
  void close() {
    if (created) jpeg_destroy_decompress(&cinfo);
    created = false;
    if (fp != nullptr) std::fclose(fp);
    fp = nullptr;
  }
};

[[noreturn]] void fail(const char* who, const std::string& what) {
  throw std::runtime_error(std::string(who) + ": " + what);
}

}  // namespace

JpegPixels read_jpeg(const char* filename, const char* who) {
  ReadSession s;
  s.fp = std::fopen(filename, "rb");
  if (s.fp == nullptr) fail(who, std::string("Cannot open file ") + filename + ": " + std::strerror(errno));
  unsigned char signature[3];
  if (std::fread(signature, 1, 3, s.fp) != 3) fail(who, std::string("Could not read header of file ") + filename);
  if (signature[0] != 0xFF || signature[1] != 0xD8 || signature[2] != 0xFF)
    fail(who, std::string("File ") + filename + " is not a JPEG");
  std::rewind(s.fp);

  s.cinfo.err = jpeg_std_error(&s.err.base);
  s.err.base.error_exit = on_error;
  s.err.base.emit_message = on_message;
  jpeg_create_decompress(&s.cinfo);
  s.created = true;
  const auto unreadable = [&] {
    if (s.err.truncated) fail(who, std::string("File ") + filename + " ends before its image data");
    fail(who, std::string("Could not read file ") + filename + " (" + s.err.message + ")");
  };
  if (!read_header(&s.cinfo, &s.err, s.fp)) unreadable();
  if (s.cinfo.jpeg_color_space == JCS_CMYK || s.cinfo.jpeg_color_space == JCS_YCCK)
    fail(who, "Format not supported.  Expected greyscale or colour JPEG");
  const long long pixels = static_cast<long long>(s.cinfo.image_width) * s.cinfo.image_height;
  if (pixels > kMaxPixels)
    fail(who, "File " + std::string(filename) + " is " + std::to_string(s.cinfo.image_width) + " x " +
                  std::to_string(s.cinfo.image_height) + " pixels, more than the " + std::to_string(kMaxPixels) +
                  " this reader accepts; scale it down first");
  if (!start(&s.cinfo, &s.err)) unreadable();

  JpegPixels result;
  result.width = static_cast<int>(s.cinfo.output_width);
  result.height = static_cast<int>(s.cinfo.output_height);
  result.rgb.reserve(static_cast<std::size_t>(result.width) * static_cast<std::size_t>(result.height) * 3);
  std::vector<unsigned char> row(static_cast<std::size_t>(result.width) * 3);
  if (!read_rows(&s.cinfo, &s.err, row.data(), &result.rgb)) unreadable();
  return result;
}

}  // namespace jpeg_io
