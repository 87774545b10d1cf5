#include "src/app/tiled_run.h"

#include <unistd.h>

#include <filesystem>
#include <iostream>

#include "device/memory.h"
#include "src/app/input_checks.h"
#include "src/app/model_files.h"
#include "src/app/run_summary.h"
#include "src/app/scene_input.h"
#include "src/core/settings.h"
#include "src/tiles/fuse_tile.h"
#include "src/tiles/memory_size.h"
#include "src/tiles/run_plan.h"
#include "src/tiles/scaffold.h"
#include "src/tiles/tile_files.h"

namespace {

int fail(const std::string& line) {
  std::cout.flush();
  std::cerr << line << "\n";
  return 1;
}

// The folder of the tiles' results, inside the output directory; gone when the run ends, however.
struct TileFolder {
  std::string path;
  explicit TileFolder(const std::string& dir) : path(dir + "/.tiles." + std::to_string(getpid())) {
    std::filesystem::create_directories(path);
  }
  ~TileFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  std::string result(std::size_t k) const { return path + "/tile_" + std::to_string(k) + ".bin"; }
};

}  // namespace

int run_in_tiles(const std::vector<std::string>& view_files, std::chrono::steady_clock::time_point start) {
  const ViewSource read = [&](int i, Camera& camera, CMatrix<float>& depth) {
    std::cout << "Reading file " << view_files[i] << std::endl;
    read_view(view_files[i], i, camera, depth);
  };
  try {
    Scaffold scaffold = read_scaffold(static_cast<int>(view_files.size()), read);
    const Camera& first = scaffold.cameras[0];
    const float s = superpixel_radius(first.width, first.height, superpixel_count);
    if (const std::string problem = radius_problem(average_depth, first.K[0], s); !problem.empty()) return fail(problem);
    const InputDepths input{scaffold.input_pixels, scaffold.input_min, scaffold.input_max, scaffold.input_median};
    if (const std::string warning = depth_avg_warning(average_depth, input); !warning.empty())
      std::cerr << warning << std::endl;
    check_scaffold_budget(max_memory, scaffold.particles.size());

    filter_scaffold(scaffold);
    writeParticlesToPLY(scaffold.particles, scaffold.offsets, scaffold.normals, output_directory + kSuperpixelModelName,
                        model_color_names);
    const RunPlan plan = plan_run(scaffold, max_memory, 1);
    std::cout << "Fusing in " << plan.tiles.size() << " tiles of at most " << plan.tile_capacity
              << " particles each, halo " << plan.halo << ", neighbour stride " << plan.stride
              << " (estimated average cell length " << plan.average_cell_length << ")\n";

    const TileFolder folder(output_directory);
    std::vector<std::string> results;
    for (std::size_t k = 0; k < plan.tiles.size(); ++k) {
      const Tile& tile = plan.tiles[k];
      std::cout << "Tile " << k + 1 << " of " << plan.tiles.size() << ": " << tile.views.size() << " views, about "
                << tile.particles << " particles" << std::endl;
      write_tile_result(folder.result(k), fuse_tile(tile, scaffold, read, plan.tiles.size() > 1 ? plan.stride : 0));
      results.push_back(folder.result(k));
    }
    merge_tile_results(results, output_directory + kModelName, model_color_names);
    device::reset();

    RunSummary summary;
    summary.superpixel_points = scaffold.particles.size();
    for (const std::string& r : results) summary.points += tile_result_points(r);
    summary.input_pixels = scaffold.input_pixels;
    summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    summary.output_directory = output_directory;
    summary.min_support_sp = min_support_sp;
    summary.min_support = min_support;
    summary.tiles = static_cast<int>(plan.tiles.size());
    summary.memory_budget = format_memory_size(max_memory);
    std::cout << format_summary(summary) << std::flush;
    return 0;
  } catch (const ViewFileError& e) {
    return fail(e.what());
  } catch (const TileBudgetError& e) {
    return fail(e.what());
  } catch (const ModelWriteError& e) {
    return fail(e.what());
  } catch (const TileFileError& e) {
    return fail(e.what());
  }
}
