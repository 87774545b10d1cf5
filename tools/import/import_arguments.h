#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/import/colmap_workspace.h"
#include "tools/import/source_scene.h"
#include "tools/import/write_views.h"

namespace importer {

enum class SourceLayout { colmap, tum, log };

struct ImportOptions {
  SourceLayout layout = SourceLayout::colmap;
  std::string source;                               // workspace or sequence folder
  ImportSettings settings;                          // output folder, --every, --max-depth
  std::optional<double> depth_scale;                // --depth-scale (tum, log)
  DepthChoice depth_maps = DepthChoice::automatic;  // --depth-maps (colmap)
  std::string trajectory;                           // --trajectory (tum, log); empty for the layout's default
  Intrinsics intrinsics{525, 525, 319.5, 239.5};    // --intrinsics (tum, log)
};

// Reads the arguments behind the program name: LAYOUT SOURCE OUTDIR and options anywhere, each
// option with its value as the next argument or after '='. Throws cli::UsageError.
ImportOptions parse_import_arguments(const std::vector<std::string>& args);

// The text printed by --help.
std::string import_usage();

// Depth image units per length unit: --depth-scale, else 5000 for tum and 1000 for log.
double depth_scale_of(const ImportOptions& options);

// The trajectory file: --trajectory, else DIR/groundtruth.txt (tum) or DIR/trajectory.log (log).
std::string trajectory_of(const ImportOptions& options);

}  // namespace importer
