#pragma once

#include <chrono>
#include <string>
#include <vector>

// The run with --max-memory, in the order of the whole run: the superpixel level over all views,
// read one at a time; tiles of space planned from where the fine particles start; the tiles fused
// in turn and streamed into the model (src/tiles); the summary. Throws what the whole run throws,
// and TileBudgetError or TileFileError.
void run_in_tiles(const std::vector<std::string>& view_files, std::chrono::steady_clock::time_point start);
