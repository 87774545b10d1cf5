// Feeds arbitrary text to the readers of the RGB-D sequences: timestamp lists, timed trajectories
// and trajectory logs.
#include <cstddef>
#include <cstdint>
#include <stdexcept>

#include "fuzz/fuzz_file.h"
#include "tools/import/log_sequence.h"
#include "tools/import/tum_sequence.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string& path = fuzz_file(data, size);
  for (auto read : {+[](const std::string& p) { importer::read_frame_list(p); },
                    +[](const std::string& p) { importer::read_trajectory(p); },
                    +[](const std::string& p) { importer::read_trajectory_log(p); }}) {
    try {
      read(path);
    } catch (const std::runtime_error&) {
    }
  }
  return 0;
}
