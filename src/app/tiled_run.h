#pragma once

#include <chrono>
#include <string>
#include <vector>

// The run with --max-memory: the superpixel level over all views, read one at a time; tiles of
// space planned from where the fine particles start; each tile fused in turn, its kept points
// written aside; the model streamed together from them. Returns the exit status.
int run_in_tiles(const std::vector<std::string>& view_files, std::chrono::steady_clock::time_point start);
