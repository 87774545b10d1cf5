#pragma once

#include <string>

#include "ketra/array.h"

namespace ketra {

// Writes the elements of a as raw floats (x fastest, no header) to path, and the line
// "x y z w kind bits_x bits_y bits_z bits_w" to path + ".ketrainfo"; device arrays are copied
// to the host first. Prints the extents, size and path to standard output.
template <class T, int N>
void writeArrayToFile(Array<T, N> const& a, std::string const& path);

}  // namespace ketra
