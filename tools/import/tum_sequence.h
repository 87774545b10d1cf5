#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/import/source_scene.h"

namespace importer {

struct TimedPose {
  double time = 0;
  Vec3 centre;          // camera-to-world translation
  Quaternion rotation;  // camera-to-world, unit
};

// Colour frames pair with the depth frame nearest in time within this many seconds.
constexpr double max_colour_offset = 0.02;
// Poses are interpolated between trajectory entries at most this many seconds apart...
constexpr double max_pose_gap = 0.1;
// ...or, beyond the ends or across a larger gap, taken from an entry this close in time.
constexpr double max_pose_offset = 0.02;

struct TimedPath {
  double time = 0;
  std::string path;
};

// A list of "timestamp path" lines (rgb.txt, depth.txt), sorted by time. Fails naming file and line.
std::vector<TimedPath> read_frame_list(const std::string& path);

// A trajectory of "timestamp tx ty tz qx qy qz qw" lines, sorted by time. Fails naming file and line.
std::vector<TimedPose> read_trajectory(const std::string& path);

// World-to-camera pose at `time` from a trajectory sorted by time, or nothing when the
// trajectory does not cover that time.
std::optional<Pose> pose_at(const std::vector<TimedPose>& trajectory, double time);

// An RGB-D sequence: DIR/rgb.txt and DIR/depth.txt ("timestamp path" per line, paths below DIR)
// and a trajectory of "timestamp tx ty tz qx qy qz qw" camera-to-world poses. Each depth frame with
// a colour frame and a pose becomes a view; the others are left out and noted.
SourceScene read_tum_sequence(const std::string& dir, const std::string& trajectory, const Intrinsics& intrinsics,
                              double depth_scale);

}  // namespace importer
