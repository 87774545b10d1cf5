#include "image/image_format.h"

#include <stdexcept>
#include <string>

ImageFormat image_format_from_name(const char* filename) {
  const std::string name(filename);
  const std::string::size_type dot = name.rfind('.');
  const std::string ext = dot == std::string::npos ? name : name.substr(dot + 1);
  if (ext == "ppm" || ext == "PPM") return ImageFormat::PPM;
  if (ext == "pgm" || ext == "PGM") return ImageFormat::PGM;
  if (ext == "png" || ext == "PNG") return ImageFormat::PNG;
  if (ext == "jpg" || ext == "JPG" || ext == "jpeg" || ext == "JPEG") return ImageFormat::JPEG;
  throw std::runtime_error("Image file format not supported");
}
