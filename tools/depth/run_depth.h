#pragma once

#include <ostream>

#include "tools/depth/depth_arguments.h"

namespace depth_tool {

// Reads every view, estimates its depth map against its neighbours and writes the depth PNGs and
// view files into options.out_dir, with progress per view and a closing summary on out. Throws
// ViewFileError or FileError (one line naming the file and the cause) for unusable input or
// unwritable output.
void run_depth(const DepthOptions& options, std::ostream& out);

}  // namespace depth_tool
