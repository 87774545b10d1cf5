#pragma once

#include <Eigen/Core>
#include <vector>

#include "src/core/camera.h"
#include "src/pose/gauss_newton_step.h"
#include "src/pose/rig_motion.h"

// The normal equations of aligning camera `camera` to the particles of view `other` alone, at the
// current poses, in the parameters of `camera` (angles, then translation, of a motion of its own
// frame), as alignment_equations gives them.
struct PairEquations {
  int camera = 0, other = 0;
  NormalEquations e;
};

// The camera's own parameters (a: angles, t: translation, of a motion of its frame, as an alignment
// solves for) of a small motion xi = (w, v) of the world, p -> p + w x (p - origin) + v, that
// carries the camera along: to first order, the matrix of that linear map.
Eigen::Matrix<double, 6, 6> camera_parameters_of_world_motion(Camera const& camera, Eigen::Vector3d const& origin);

// One joint Gauss-Newton step for all cameras together: the motions of the cameras that make every
// pair agree best, where a pair's residual depends on how its two cameras move relative to each
// other (moving both alike changes nothing). Each camera's motion is a small motion of the world
// about the rig's centre; the motion of the whole rig, which no pair can see, is held near zero by a
// slight pull of every camera towards where it stands. Returns one motion per camera, to be applied
// with move_with_world.
std::vector<WorldMotion> joint_rig_step(std::vector<Camera> const& cameras, std::vector<PairEquations> const& pairs);
