#include "image/EInvalidFileFormat.h"

#include <iostream>

EInvalidFileFormat::EInvalidFileFormat(const char* format) {
  std::cerr << "Exception EInvalidFileFormat: File is not in " << format << " format" << std::endl;
}
