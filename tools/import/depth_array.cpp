#include "tools/import/depth_array.h"

#include <bit>
#include <cstdint>
#include <fstream>
#include <iterator>

#include "tools/import/import_error.h"

namespace importer {

DepthArray read_depth_array(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) fail(path, "cannot open");
  const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());

  // Three decimal numbers, each ended by '&'.
  long long header[3] = {};
  size_t pos = 0;
  for (long long& value : header) {
    const size_t start = pos;
    while (pos < bytes.size() && pos - start < 9 && bytes[pos] >= '0' && bytes[pos] <= '9')
      value = value * 10 + (bytes[pos++] - '0');
    if (pos == start || pos >= bytes.size() || bytes[pos] != '&')
      fail(path, "expected a header \"width&height&channels&\" (not a depth map file)");
    ++pos;
  }
  const long long width = header[0], height = header[1], channels = header[2];
  if (width < 1 || height < 1 || width > 1000000 || height > 1000000) fail(path, "image size out of range");
  if (channels != 1) fail(path, "has " + std::to_string(channels) + " channels; a depth map has 1");
  const uint64_t expected = static_cast<uint64_t>(width) * static_cast<uint64_t>(height) * 4;
  if (bytes.size() - pos != expected)
    fail(path, "holds " + std::to_string(bytes.size() - pos) + " bytes of data, but " + std::to_string(width) + " x " +
                   std::to_string(height) + " floats take " + std::to_string(expected));

  DepthArray array;
  array.width = static_cast<int>(width);
  array.height = static_cast<int>(height);
  array.values.resize(static_cast<size_t>(width) * static_cast<size_t>(height));
  for (size_t i = 0; i < array.values.size(); ++i, pos += 4) {
    uint32_t bits = 0;
    for (int k = 3; k >= 0; --k) bits = (bits << 8) | static_cast<unsigned char>(bytes[pos + k]);
    array.values[i] = std::bit_cast<float>(bits);
  }
  return array;
}

}  // namespace importer
