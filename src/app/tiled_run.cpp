#include "src/app/tiled_run.h"

#include <iostream>

#include "device/memory.h"
#include "src/app/input_checks.h"
#include "src/app/model_files.h"
#include "src/app/run_summary.h"
#include "src/app/stage_options.h"
#include "src/core/settings.h"
#include "src/tiles/memory_size.h"
#include "src/tiles/run_plan.h"
#include "src/tiles/scaffold.h"
#include "src/tiles/tiled_fusion.h"
#include "src/tiles/view_source.h"

void run_in_tiles(const std::vector<std::string>& view_files, std::chrono::steady_clock::time_point start) {
  const ViewSource read = view_files_source(view_files);
  Scaffold scaffold = read_scaffold(static_cast<int>(view_files.size()), read);
  const StageOptions stages = make_stage_options(scaffold.cameras[0]);
  const InputDepths input{scaffold.input_pixels, scaffold.input_min, scaffold.input_max, scaffold.input_median};
  if (const std::string warning = depth_avg_warning(average_depth, input); !warning.empty())
    std::cerr << warning << std::endl;
  check_scaffold_budget(max_memory, scaffold.particles.size());

  filter_scaffold(scaffold, stages.superpixel_filter, stages.superpixel_support);
  writeParticlesToPLY(scaffold.particles, scaffold.offsets, scaffold.normals, output_directory + kSuperpixelModelName,
                      model_color_names);
  const RunPlan plan = plan_run(scaffold, max_memory, 1, stages.pixel_filter, stages.radii.pixel);
  std::cout << "Fusing in " << plan.tiles.size() << " tiles of at most " << plan.tile_capacity
            << " particles each, halo " << plan.halo << ", neighbour stride "
            << (plan.stride > 0 ? std::to_string(plan.stride) : std::string("from the cells"))
            << " (estimated average cell length " << plan.average_cell_length << ")\n";
  RunSummary summary;
  summary.points = fuse_tiles(plan, scaffold, read, stages.pixel_filter, stages.pixel_support, output_directory,
                              output_directory + kModelName, model_color_names);
  device::reset();

  summary.superpixel_points = scaffold.particles.size();
  summary.input_pixels = scaffold.input_pixels;
  summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  summary.output_directory = output_directory;
  summary.min_support_sp = min_support_sp;
  summary.min_support = min_support;
  summary.tiles = static_cast<int>(plan.tiles.size());
  summary.memory_budget = format_memory_size(max_memory);
  std::cout << format_summary(summary) << std::flush;
}
