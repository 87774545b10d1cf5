#pragma once

#include <cstdint>

#include "tools/scene/scene.h"
#include "tools/scene/scene_camera.h"

namespace scene {

// A known error of a written camera pose: a rotation by `degrees` about an axis and a shift of
// the camera centre by `footprints` pixel footprints (the world size of one pixel at the depth
// of the scene's look-at point) in a direction, both directions drawn from the seed and the view.
struct PosePerturbation {
  double degrees = 0;
  double footprints = 0;
  bool active() const { return degrees != 0 || footprints != 0; }
};

// The camera with its pose moved by the perturbation: R becomes Q R (Q the rotation about the
// drawn axis), the centre moves, t = -R centre; all numbers exact 32-bit floats as in
// make_cameras. Intrinsics and size stay.
SceneCamera perturb_pose(const SceneCamera& camera, const Scene& scene, const PosePerturbation& perturbation,
                         uint64_t seed, int view);

// The camera carried along with the whole rig: the world is turned by `degrees` about an axis
// through the scene's look-at point and shifted by `footprints` times `footprint`, both directions
// drawn from the seed alone, so that every camera takes the same motion and the cameras stay true to
// each other. R becomes R Q^T, the centre moves with the world.
SceneCamera move_with_rig(const SceneCamera& camera, const Scene& scene, const PosePerturbation& rig,
                          double footprint, uint64_t seed);

}  // namespace scene
