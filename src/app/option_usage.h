#pragma once

#include <functional>
#include <string_view>

#include "src/app/option_parser.h"

namespace option {

// Receives the usage text piece by piece.
using UsageWriter = std::function<void(std::string_view)>;

struct PrintUsageImplementation {
  // Writes the help texts of the table as aligned columns.
  //
  // Each help text is split into lines at '\n' and each line into cells at '\t'. Every cell but a
  // line's last is printed as it stands, padded to the widest cell of its column over all lines;
  // the help texts carry their own blank before the tab, so no gap is added. A line's last cell
  // starts where the cells before it end and is wrapped to the width: lines break after the last
  // word that fits, the blanks at a break are dropped, and a word longer than the room is cut.
  // Continuation lines are indented to the cell's start. A line without a tab is one cell that
  // wraps at the full width. When the last cell would get less than last_column_min_percent of the
  // width, it moves to lines of its own below the other cells, in a block of
  // last_column_own_line_max_percent of the width that ends at the right margin. Trailing blanks of every output line are
  // dropped. Widths are counted in bytes.
  static void printUsage(const UsageWriter& writer, const Descriptor usage[], int width = 80,
                         int last_column_min_percent = 50, int last_column_own_line_max_percent = 75);
};

}  // namespace option
