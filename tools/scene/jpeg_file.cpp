#include "tools/scene/jpeg_file.h"

#include <cerrno>
#include <csetjmp>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

// After <cstddef> and <cstdio>: jpeglib.h needs FILE and size_t declared before it.
#include <jpeglib.h>

namespace scene {
namespace {

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
};

void on_error(j_common_ptr cinfo) { std::longjmp(reinterpret_cast<ErrorManager*>(cinfo->err)->jump, 1); }

// libjpeg leaves through longjmp on failure; this frame holds no C++ objects with destructors.
bool compress(jpeg_compress_struct* cinfo, ErrorManager* err, std::FILE* fp, int width, int height, int components,
              const uint8_t* samples, int quality) {
  if (setjmp(err->jump)) return false;
  jpeg_stdio_dest(cinfo, fp);
  cinfo->image_width = static_cast<JDIMENSION>(width);
  cinfo->image_height = static_cast<JDIMENSION>(height);
  cinfo->input_components = components;
  cinfo->in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
  jpeg_set_defaults(cinfo);
  jpeg_set_quality(cinfo, quality, TRUE);
  jpeg_start_compress(cinfo, TRUE);
  while (cinfo->next_scanline < cinfo->image_height) {
    JSAMPROW row = const_cast<uint8_t*>(samples) + static_cast<std::size_t>(cinfo->next_scanline) * width * components;
    jpeg_write_scanlines(cinfo, &row, 1);
  }
  jpeg_finish_compress(cinfo);
  return true;
}

}  // namespace

void write_jpeg(const std::string& path, int width, int height, int components, const std::vector<uint8_t>& samples,
                int quality) {
  if (width <= 0 || height <= 0 || (components != 1 && components != 3) ||
      samples.size() != static_cast<size_t>(width) * height * components)
    throw std::runtime_error("write_jpeg: size does not match the data for " + path);
  std::unique_ptr<FILE, int (*)(FILE*)> f(std::fopen(path.c_str(), "wb"), &std::fclose);
  if (!f) throw std::runtime_error("write_jpeg: cannot open " + path + ": " + std::strerror(errno));
  jpeg_compress_struct cinfo{};
  ErrorManager err{};
  cinfo.err = jpeg_std_error(&err.base);
  err.base.error_exit = on_error;
  jpeg_create_compress(&cinfo);
  const bool ok = compress(&cinfo, &err, f.get(), width, height, components, samples.data(), quality);
  jpeg_destroy_compress(&cinfo);
  if (!ok || std::fflush(f.get()) != 0) throw std::runtime_error("write_jpeg: cannot write " + path);
}

}  // namespace scene
