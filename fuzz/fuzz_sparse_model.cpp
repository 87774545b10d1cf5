// Feeds arbitrary bytes to the sparse-model readers, text and binary, cameras and images.
#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "fuzz/fuzz_file.h"
#include "tools/import/colmap_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string& path = fuzz_file(data, size);
  for (auto read : {+[](const std::string& p) { importer::read_colmap_cameras_text(p); },
                    +[](const std::string& p) { importer::read_colmap_cameras_binary(p); },
                    +[](const std::string& p) { importer::read_colmap_images_text(p); },
                    +[](const std::string& p) { importer::read_colmap_images_binary(p); }}) {
    try {
      read(path);
    } catch (const std::runtime_error&) {
      // a refusal naming the file is the expected outcome for most inputs
    }
  }
  return 0;
}
