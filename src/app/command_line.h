#pragma once

#include <optional>
#include <string>
#include <vector>

#include "src/app/option_parser.h"

// Slots of the option array. Index 0 is the usage line and the catch-all for unknown options.
// No row sets debug_write (it keeps 0) or limits the depth range: scene input settles that itself.
namespace option_index {
enum : unsigned {
  UNKNOWN = 0,
  HELP = 1,
  OUT_DIR = 2,
  DEPTH_AVG = 3,
  ALPHA_SP = 4,
  BETA_SP = 5,
  ALPHA = 6,
  BETA = 7,
  MIN_SUPPORT_SP = 8,
  MIN_SUPPORT = 9,
  SUPERPIXELS = 10,
  VERSION = 11,
  PREVIEW = 12,
  VISIBLE_SUPPORT = 13,
  VISIBLE_FLOOR = 14,
  PLY_COLORS = 15,
  IMPROVE_CAMERAS = 16,
  BACKFACE_TEST = 17,
  MAX_MEMORY = 18,
};
}  // namespace option_index

// The option table, ended by an empty row, and the zero-terminated list of required options.
extern const option::Descriptor usage[];
extern const unsigned required_options[];

// Parses the command line into the run-level settings, creates the output directory and checks
// that the models can be written there, and collects the view files named behind the first "--"
// (which must exist, at least two of them). Options with values a run cannot work with (see
// MyArg) are refused by the parser, before anything is created.
// Returns the exit status when the process must end now, nothing when the run goes on.
std::optional<int> set_up_run(int argc, char* argv[], std::vector<std::string>& view_files);
