#include "src/pose/rig_motion.h"

#include <Eigen/LU>
#include <Eigen/SVD>
#include <algorithm>
#include <cmath>

namespace {

// R of a camera as a double matrix; Camera keeps it by columns.
Eigen::Matrix3d rotation(Camera const& c) {
  Eigen::Matrix3d R;
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 3; ++k) R(r, k) = c.R[3 * k + r];
  return R;
}

Eigen::Vector3d centre(Camera const& c) { return {c.center[0], c.center[1], c.center[2]}; }

}  // namespace

double turn_degrees(Camera const& a, Camera const& b) {
  const Eigen::Matrix3d m = rotation(a) * rotation(b).transpose();
  const double sx = m(2, 1) - m(1, 2), sy = m(0, 2) - m(2, 0), sz = m(1, 0) - m(0, 1);
  return std::atan2(std::sqrt(sx * sx + sy * sy + sz * sz), m.trace() - 1.0) * 180.0 / M_PI;
}

double centre_distance(Camera const& a, Camera const& b) { return (centre(a) - centre(b)).norm(); }

WorldMotion best_world_motion(std::vector<Camera> const& from, std::vector<Camera> const& to, double lever) {
  const double n = static_cast<double>(from.size());
  Eigen::Vector3d mean_from = Eigen::Vector3d::Zero(), mean_to = Eigen::Vector3d::Zero();
  for (std::size_t i = 0; i < from.size(); ++i) {
    mean_from += centre(from[i]) / n;
    mean_to += centre(to[i]) / n;
  }
  // Q maximises the trace of Q^T M: M sums the centres' outer products and, for the orientations,
  // lever^2 Rto^T Rfrom (a camera R moved by Q is R Q^T).
  Eigen::Matrix3d M = Eigen::Matrix3d::Zero();
  for (std::size_t i = 0; i < from.size(); ++i) {
    M += (centre(to[i]) - mean_to) * (centre(from[i]) - mean_from).transpose();
    M += lever * lever * rotation(to[i]).transpose() * rotation(from[i]);
  }
  const Eigen::JacobiSVD<Eigen::Matrix3d> svd(M, Eigen::ComputeFullU | Eigen::ComputeFullV);
  Eigen::Matrix3d flip = Eigen::Matrix3d::Identity();
  if ((svd.matrixU() * svd.matrixV().transpose()).determinant() < 0) flip(2, 2) = -1.0;
  const Eigen::Matrix3d Q = svd.matrixU() * flip * svd.matrixV().transpose();
  const Eigen::Vector3d s = mean_to - Q * mean_from;
  WorldMotion w;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) w.Q[3 * r + c] = Q(r, c);
    w.s[r] = s(r);
  }
  return w;
}

WorldMotion world_motion_by_scatter(std::vector<Camera> const& from, std::vector<Camera> const& to, double longest) {
  double lever = longest;
  WorldMotion w = best_world_motion(from, to, lever);
  for (int round = 0; round < 2; ++round) {
    const Eigen::Matrix3d Q = Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(w.Q);
    const Eigen::Vector3d s(w.s[0], w.s[1], w.s[2]);
    double centres = 0.0, turns = 0.0;
    for (std::size_t i = 0; i < from.size(); ++i) {
      centres += (Q * centre(from[i]) + s - centre(to[i])).squaredNorm();
      turns += (rotation(from[i]) * Q.transpose() - rotation(to[i])).squaredNorm();
    }
    lever = turns > 0.0 ? std::clamp(std::sqrt(centres / turns), longest / 20.0, longest) : longest;
    w = best_world_motion(from, to, lever);
  }
  return w;
}

void move_with_world(Camera& camera, WorldMotion const& motion) {
  const Eigen::Matrix3d Q = Eigen::Map<const Eigen::Matrix<double, 3, 3, Eigen::RowMajor>>(motion.Q);
  const Eigen::Vector3d s(motion.s[0], motion.s[1], motion.s[2]);
  const Eigen::Matrix3d R = rotation(camera) * Q.transpose();
  const Eigen::Vector3d c = Q * centre(camera) + s;
  const Eigen::Vector3d t = -R * c;
  for (int r = 0; r < 3; ++r) {
    for (int k = 0; k < 3; ++k) camera.R[3 * k + r] = static_cast<float>(R(r, k));
    camera.t[r] = static_cast<float>(t(r));
    camera.center[r] = static_cast<float>(c(r));
  }
}
