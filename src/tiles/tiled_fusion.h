#pragma once

#include <cstdint>
#include <string>

#include "src/filter/filter_particles.h"
#include "src/io/model_output.h"
#include "src/tiles/run_plan.h"
#include "src/tiles/scaffold.h"
#include "src/tiles/view_source.h"
#include "src/visibility/support_filter.h"

// The fine level of a planned run on this machine: every tile fused in turn (fuse_tile, with the
// plan's stride in the filter's schedule), its kept points written to a hidden folder of
// `directory` (".tiles.PID"), and then all of them streamed into model_path. The folder is removed
// when this returns, whenever it throws, internal failures included, and when SIGINT, SIGTERM or
// SIGHUP stops the process. Prints a line per tile and returns the number of points in the model.
std::uint64_t fuse_tiles(const RunPlan& plan, const Scaffold& scaffold, const ViewSource& read,
                         const FilterOptions& filter, const SupportFilterOptions& support, const std::string& directory,
                         const std::string& model_path, PlyColorNames names);
