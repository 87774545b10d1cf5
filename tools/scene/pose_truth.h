#pragma once

#include <string>
#include <vector>

#include "tools/scene/model_file.h"
#include "tools/scene/vec3.h"

namespace scene {

// The pose error of one view file against the true pose of its view.
struct PoseError {
  double degrees = 0;  // angle of the rotation between the two orientations
  double centre = 0;   // distance between the two camera centres, in length units
};

// The pose errors of a set of view files against the true poses of a generated scene, as they
// stand and after the one rigid motion of the whole set that brings its camera centres closest to
// the true ones (least squares). The second measures the poses relative to each other: a rig
// that was moved as a whole, with its cameras true to each other, has none.
struct PoseTruthFigures {
  double footprint = 0;  // world size of one pixel at the scene's average depth
  std::vector<PoseError> absolute, relative;
  PoseError rig;  // that motion: its angle, and how far it moves the mean camera centre
};

// Reads SCENE_DIR/true_view_NN.txt and, for each, POSES_DIR/view_NN.txt, until a true view is
// missing. Throws std::runtime_error naming a file that cannot be read, or when the scene has no
// true views (it was generated without a pose error).
PoseTruthFigures compare_poses_with_truth(const std::string& scene_dir, const std::string& poses_dir);

// One line per view and the medians, centres in millimetres and in footprints.
std::string format_pose_truth(const PoseTruthFigures& f);

// The one rigid motion x -> Q x + s of the world that brings the camera centres of POSES_DIR's view
// files closest to the true ones (that of PoseTruthFigures::rig). Moving a model made with those
// poses by it takes away the error that all its cameras share, which no image can show.
struct RigMotion {
  Mat3 Q;
  Vec3 s;
  PoseError size;  // its angle, and how far it moves the mean camera centre
};
RigMotion rig_motion_onto_truth(const std::string& scene_dir, const std::string& poses_dir);

// Moves the model's points and turns their normals by the motion.
void move_model(std::vector<ModelPoint>& model, const RigMotion& motion);

}  // namespace scene
