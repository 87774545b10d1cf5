// Reads arbitrary bytes as a colour PNG and as a depth PNG; failures must be exceptions.
#include <stdexcept>

#include "fuzz/fuzz_file.h"
#include "image/CMatrix.h"
#include "image/CTensor.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string& path = fuzz_file(data, size);
  try {
    CTensor<float> colour;
    colour.readFromPNG(path.c_str(), false);
  } catch (const std::runtime_error&) {
  }
  try {
    CMatrix<unsigned short> depth;
    depth.readFromPNG(path.c_str());
  } catch (const std::runtime_error&) {
  }
  return 0;
}
