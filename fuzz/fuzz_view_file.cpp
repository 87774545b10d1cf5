// Feeds arbitrary text to the view-file parser.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "formats/view_file.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ViewFile view;
  parse_view_file(std::string_view(reinterpret_cast<const char*>(data), size), view);
  return 0;
}
