#pragma once

#include "tools/scene/vec3.h"

// Camera poses as the importers meet them: quaternions, camera-to-world matrices, interpolation
// between two timed poses.
namespace importer {

using scene::Mat3;
using scene::Vec3;

// World-to-camera in the usual pinhole frame (x right, y down, z forward): c = R p + t.
struct Pose {
  Mat3 R;
  Vec3 t;
};

struct Quaternion {
  double w = 1, x = 0, y = 0, z = 0;
};

// Rotation of a quaternion, normalised first; false for a zero quaternion.
bool rotation_of(Quaternion q, Mat3& rotation);

// True when the matrix is a rotation within `tolerance` (orthonormal rows, determinant +1).
bool is_rotation(const Mat3& m, double tolerance);

// World-to-camera pose of a camera-to-world rotation and camera centre.
Pose pose_from_camera_to_world(const Mat3& rotation, Vec3 centre);

// Spherical interpolation of unit quaternions (u = 0 gives a, u = 1 gives b), the shorter way.
Quaternion slerp(Quaternion a, Quaternion b, double u);

}  // namespace importer
