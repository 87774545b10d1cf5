#pragma once

#include <ostream>

#include "tools/import/import_arguments.h"

namespace importer {

// Reads the source layout, writes the view files and depth maps, and prints progress and the
// summary to `out`. Problems with the files throw ImportError.
ImportSummary run_import(const ImportOptions& options, std::ostream& out);

// Only the reading step: the views found in the source layout.
SourceScene read_source(const ImportOptions& options);

}  // namespace importer
