#include "image/EInvalidFileFormat.h"

#include <string>

EInvalidFileFormat::EInvalidFileFormat(const char* format)
    : std::runtime_error(std::string("File is not in ") + format + " format") {}
