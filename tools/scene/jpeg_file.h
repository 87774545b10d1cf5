#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace scene {

// Writes 8-bit samples (components 3 for RGB or 1 for grey, interleaved, row by row) as a baseline
// JPEG of the given quality (1 to 100). Throws std::runtime_error with the path on failure.
void write_jpeg(const std::string& path, int width, int height, int components, const std::vector<uint8_t>& samples,
                int quality);

}  // namespace scene
