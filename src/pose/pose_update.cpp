#include "src/pose/pose_update.h"

#include <Eigen/Geometry>
#include <cmath>

std::array<float, 9> pose_update_rotation(PoseUpdate const& x) {
  const Eigen::Quaternionf q = Eigen::Quaternionf(Eigen::AngleAxisf(x[0], Eigen::Vector3f::UnitX())) *
                               Eigen::Quaternionf(Eigen::AngleAxisf(x[1], Eigen::Vector3f::UnitY())) *
                               Eigen::Quaternionf(Eigen::AngleAxisf(x[2], Eigen::Vector3f::UnitZ()));
  const Eigen::Matrix3f m = q.toRotationMatrix();
  std::array<float, 9> R;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) R[3 * r + c] = m(r, c);
  return R;
}

Projection pose_delta(Projection const& level, PoseUpdate const& x) {
  Projection delta = level;
  const std::array<float, 9> R = pose_update_rotation(x);
  for (int i = 0; i < 9; ++i) delta.R[i] = R[i];
  for (int i = 0; i < 3; ++i) delta.t[i] = x[3 + i];
  return delta;
}

void apply_pose_update(Camera& camera, PoseUpdate const& x) {
  apply_rigid_motion(camera, {pose_update_rotation(x), {x[3], x[4], x[5]}});
}

void apply_rigid_motion(Camera& camera, RigidMotion const& m) {
  const std::array<float, 9>& D = m.R;
  // The camera keeps R by columns: element (r, c) at [3 * c + r].
  float R[9], t[3];
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c)
      R[3 * c + r] = D[3 * r] * camera.R[3 * c] + D[3 * r + 1] * camera.R[3 * c + 1] + D[3 * r + 2] * camera.R[3 * c + 2];
    t[r] = D[3 * r] * camera.t[0] + D[3 * r + 1] * camera.t[1] + D[3 * r + 2] * camera.t[2] + m.t[r];
  }
  for (int i = 0; i < 9; ++i) camera.R[i] = R[i];
  for (int i = 0; i < 3; ++i) camera.t[i] = t[i];
  for (int c = 0; c < 3; ++c)
    camera.center[c] = -(camera.R[3 * c] * t[0] + camera.R[3 * c + 1] * t[1] + camera.R[3 * c + 2] * t[2]);
}

RigidMotion compose_update(RigidMotion const& m, PoseUpdate const& x) {
  const std::array<float, 9> D = pose_update_rotation(x);
  RigidMotion r;
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j)
      r.R[3 * i + j] = m.R[3 * i] * D[j] + m.R[3 * i + 1] * D[3 + j] + m.R[3 * i + 2] * D[6 + j];
    r.t[i] = m.t[i] + x[3 + i];
  }
  return r;
}

bool pose_update_converged(PoseUpdate const& x) {
  for (int i = 0; i < 3; ++i)
    if (!(std::fabs(x[i]) < 1e-5f) || !(std::fabs(x[3 + i]) < 1e-4f)) return false;
  return true;
}
