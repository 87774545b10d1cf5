// Feeds arbitrary bytes to the reader of the workspace's float depth arrays.
#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "fuzz/fuzz_file.h"
#include "tools/import/depth_array.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    importer::read_depth_array(fuzz_file(data, size));
  } catch (const std::runtime_error&) {
  }
  return 0;
}
