#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include "tools/import/source_scene.h"

namespace importer {

struct ImportSettings {
  std::string out_dir;
  int every = 1;         // keep views 0, every, 2 * every, ...
  double max_depth = 0;  // depths beyond this (source length units) are dropped; 0 keeps all
};

struct ImportSummary {
  std::string out_dir;  // absolute
  std::vector<std::string> view_files;
  double scale = 1;  // imported lengths = scale * source lengths
  uint64_t depth_pixels = 0;
  double smallest_depth = 0, largest_depth = 0, median_depth = 0;  // imported length unit
  uint64_t dropped_depths = 0;  // source depths too large for a depth PNG at this scale
  int removed_files = 0;  // numbered files of an earlier import beyond the new ones
};

// Converts the views into OUT/view_NN.txt and OUT/depth_NN.png (16-bit thousandths). View files
// name the source colour images by absolute path. Checks every file it reads and fails with an
// ImportError naming the file; prints one progress line per view.
ImportSummary write_imported_views(const SourceScene& scene, const ImportSettings& settings, std::ostream& progress);

// The closing lines: what was imported, depth figures, the scale, and the quillara command line
// to run next with the median depth as --depth-avg.
std::string format_import_summary(const SourceScene& scene, const ImportSummary& summary);

}  // namespace importer
