#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "src/tiles/tile_plan.h"

// DIR/plan.json of a planned run: what every tile job needs besides the scaffold and the views.
namespace tiles {

// A file as it stood at planning: its size and modification time.
struct FileStamp {
  std::string path;
  std::uint64_t bytes = 0;
  long long modified_ns = 0;
};

// A view file and the colour image and depth map it names.
struct PlannedView {
  std::string file;
  std::vector<FileStamp> stamps;
};

struct PlanFile {
  std::vector<std::string> arguments;  // the quillara options but the output directory, and the view files
  std::string working_directory;       // where relative paths in them and in the view files start
  std::uint64_t budget = 0;            // --max-memory, 0 with --tiles
  int min_tiles = 0;                   // --tiles, 0 with --max-memory
  float depth_range_max = 0.0f;        // from all views' depths, which a tile job does not read
  float halo = 0.0f;
  int stride = 0;                      // the fine filter's neighbour stride for all tiles; 0 for one tile
  std::vector<PlannedView> views;
  std::vector<Tile> tiles;
  std::vector<std::uint64_t> tile_bytes;  // peak memory each tile job needs
};

std::string format_plan(const PlanFile& plan);
// Throws std::runtime_error naming what is missing or malformed.
PlanFile parse_plan(const std::string& text);

// Stamps of the view file and the colour image and depth map it names; a named file that cannot
// be found gets no stamp beyond its path. Throws ViewFileError for a view file that cannot be read.
PlannedView stamp_view(const std::string& view_file);

// Why a view is no longer as planned ("has vanished", "has changed"), naming the file; empty
// when all its files stand as they did.
std::string view_change(const PlannedView& planned);

}  // namespace tiles
