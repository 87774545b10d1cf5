#include "src/tiles/tiled_fusion.h"

#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <vector>

#include "src/io/remove_on_signal.h"
#include "src/tiles/fuse_tile.h"
#include "src/tiles/tile_files.h"

namespace {

// The folder of the tiles' results, inside the output directory; gone when the object ends or a
// signal stops the run.
struct TileFolder {
  std::string path;
  RemoveOnSignal on_signal;
  explicit TileFolder(const std::string& dir)
      : path(dir + "/.tiles." + std::to_string(getpid())), on_signal(path, RemoveOnSignal::Kind::folder) {
    std::filesystem::create_directories(path);
  }
  ~TileFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  TileFolder(const TileFolder&) = delete;
  TileFolder& operator=(const TileFolder&) = delete;
  std::string result(std::size_t k) const { return path + "/tile_" + std::to_string(k) + ".bin"; }
};

}  // namespace

std::uint64_t fuse_tiles(const RunPlan& plan, const Scaffold& scaffold, const ViewSource& read,
                         const FilterOptions& filter, const SupportFilterOptions& support, const std::string& directory,
                         const std::string& model_path, PlyColorNames names) {
  FilterOptions tile_filter = filter;
  tile_filter.schedule.stride = plan.stride;
  // An exception nothing catches ends the process without unwinding the stack; caught here and
  // thrown on, it removes the folder on its way.
  try {
    const TileFolder folder(directory);
    std::vector<std::string> results;
    std::uint64_t points = 0;
    for (std::size_t k = 0; k < plan.tiles.size(); ++k) {
      const Tile& tile = plan.tiles[k];
      std::cout << "Tile " << k + 1 << " of " << plan.tiles.size() << ": " << tile.views.size() << " views, about "
                << tile.particles << " particles" << std::endl;
      const TileModel model = fuse_tile(tile, scaffold, read, tile_filter, support);
      write_tile_result(folder.result(k), model);
      results.push_back(folder.result(k));
      points += model.particles.size();
    }
    merge_tile_results(results, model_path, names);
    return points;
  } catch (...) {
    throw;
  }
}
