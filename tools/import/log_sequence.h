#pragma once

#include <string>
#include <vector>

#include "tools/import/source_scene.h"

namespace importer {

// One block of a trajectory log: the frame it poses (from 1) and the camera-to-world rotation and
// centre.
struct TrajectoryBlock {
  long frame = 0;
  Mat3 rotation;
  Vec3 centre;
};

// The blocks of a trajectory log in file order. Fails naming the file and the first line that
// does not fit its place in a block.
std::vector<TrajectoryBlock> read_trajectory_log(const std::string& path);

// A trajectory-log sequence: DIR/color/ and DIR/depth/ with one image per frame, paired in name
// order, and a trajectory of blocks "id id frame" + four rows of a 4x4 camera-to-world matrix,
// where frame counts from 1 in that order. Each block becomes a view, in file order.
SourceScene read_log_sequence(const std::string& dir, const std::string& trajectory, const Intrinsics& intrinsics,
                              double depth_scale);

}  // namespace importer
