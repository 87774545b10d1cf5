#pragma once

#include <string>
#include <vector>

#include "src/app/option_parser.h"
#include "src/visibility/support_filter.h"

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

// The rule the support filters follow, as --visible-support and --visible-floor set it.
extern SupportRule support_rule;
// Whether --alpha was given: with the visible share the fine filter has a default of its own.
extern bool alpha_given;

// Parses the command line into the run-level settings (and support_rule, the preview switch and the
// model colour names) and returns the view files named behind the first "--". Options with values
// a run cannot work with (see MyArg) are refused by the parser. Throws CommandLineExit when the
// process ends here: after the usage or the version, on a parse error and when a required option
// is missing (the last with status 0).
std::vector<std::string> parse_command_line(int argc, char* argv[]);

// The view files must exist (a directory passes) and be at least two; then they are the run's
// views (n_keyframes). Throws RunError with the reason otherwise.
void check_view_files(const std::vector<std::string>& view_files);
