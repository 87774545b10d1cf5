#pragma once

#include <string>

#include "device/vector_types.h"
#include "ketra/array.h"

namespace ketra {

// Writes a 3-plane byte array (planes red, green, blue) as an image whose format follows the
// extension of path ("ppm"/"PPM", "pgm"/"PGM", "png"/"PNG"; anything else throws
// "Image file format not supported"). With invert each byte b is written as -b in 8 bits. An array
// whose z extent is not 3 is reported on standard output and nothing is written. Device arrays are
// copied to the host first.
template <class T>
void saveImage(Array<T, 3> const& a, std::string const& path, bool invert);
template <>
void saveImage<unsigned char>(Array<unsigned char, 3> const& a, std::string const& path, bool invert);

}  // namespace ketra

// Writes the colour bytes of an interleaved image as an RGB PNG; the alpha byte is dropped. Device
// arrays are copied to the host first.
void saveImageToPNG(ketra::Array<uchar4, 2> const& a, std::string const& path);
