// Reads arbitrary bytes as a colour JPEG; failures must be exceptions.
#include <stdexcept>

#include "fuzz/fuzz_file.h"
#include "image/CTensor.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string& path = fuzz_file(data, size);
  try {
    CTensor<float> colour;
    colour.readFromJPEG(path.c_str());
  } catch (const std::runtime_error&) {
  }
  return 0;
}
