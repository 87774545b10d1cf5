#pragma once

#include <string>

#include "tools/import/source_scene.h"

namespace importer {

// A trajectory-log sequence: DIR/color/ and DIR/depth/ with one image per frame, paired in name
// order, and a trajectory of blocks "id id frame" + four rows of a 4x4 camera-to-world matrix,
// where frame counts from 1 in that order. Each block becomes a view, in file order.
SourceScene read_log_sequence(const std::string& dir, const std::string& trajectory, const Intrinsics& intrinsics,
                              double depth_scale);

}  // namespace importer
