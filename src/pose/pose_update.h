#pragma once

#include <array>

#include "src/core/camera.h"
#include "src/render/projection.h"

// The rigid motion D that the alignment solves for: angles a0, a1, a2 in radians and a
// translation t0, t1, t2 in world units, in that order. D maps a point p of the current camera
// frame to R(a) p + t, with R(a) = Rx(a0) Ry(a1) Rz(a2).
using PoseUpdate = std::array<float, 6>;

// R(a) row by row, from the product of the three half-angle quaternions in that order.
std::array<float, 9> pose_update_rotation(PoseUpdate const& x);

// A rigid motion p -> R p + t of camera-frame points, R row by row.
struct RigidMotion {
  std::array<float, 9> R = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  std::array<float, 3> t = {0, 0, 0};
};

// The motion m followed by the small update x applied before it: p -> m.R R(a) p + m.t + (t0, t1, t2),
// the step of a Gauss-Newton alignment whose derivatives are taken at m.
RigidMotion compose_update(RigidMotion const& m, PoseUpdate const& x);

// Moves the camera by m on the left: R becomes m.R R, t becomes m.R t + m.t; the centre follows.
void apply_rigid_motion(Camera& camera, RigidMotion const& m);

// The level's projection (size and intrinsics) carrying D as its R and t.
Projection pose_delta(Projection const& level, PoseUpdate const& x);

// Moves the camera by D on the left: R becomes R(a) R, t becomes R(a) t + (t0, t1, t2); the
// centre follows, -R^T t.
void apply_pose_update(Camera& camera, PoseUpdate const& x);

// True when every angle is below 1e-5 and every translation below 1e-4 in magnitude.
bool pose_update_converged(PoseUpdate const& x);
