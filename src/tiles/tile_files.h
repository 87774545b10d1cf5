#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "src/io/model_output.h"
#include "src/tiles/fuse_tile.h"
#include "src/tiles/scaffold.h"

// A file of a tiled run is missing, incomplete or not of its kind. The text names it.
class TileFileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A tile's result: the points it keeps as model vertices (position, normal, colour, size), so
// that the merge only copies them. Written under a temporary name and renamed when complete, so a
// result is there whole or not at all, and a rerun replaces it.
void write_tile_result(const std::string& path, const TileModel& model);

// The number of points in a complete tile result; throws TileFileError otherwise.
std::uint64_t tile_result_points(const std::string& path);

// Writes the model file from the tile results in their order, streaming: one result at a time in
// pieces, never the whole model. The file is the one writeParticlesToPLY would write for the
// tiles' points in that order.
void merge_tile_results(const std::vector<std::string>& results, const std::string& model_path, PlyColorNames names);

// The scaffold of a planned run, for its tile jobs; written atomically like a tile result.
void write_scaffold(const std::string& path, const Scaffold& scaffold);
Scaffold read_scaffold_file(const std::string& path);
