#include "src/pose/rig_adjustment.h"

#include <Eigen/Cholesky>
#include <Eigen/Geometry>

namespace {

using Matrix6 = Eigen::Matrix<double, 6, 6>;

Eigen::Matrix3d skew(Eigen::Vector3d const& v) {
  Eigen::Matrix3d m;
  m << 0, -v.z(), v.y(), v.z(), 0, -v.x(), -v.y(), v.x(), 0;
  return m;
}

}  // namespace

// The camera moved by the world motion G has the pose T G^-1: a = -R w, t = R ((C - o) x w - v).
Matrix6 camera_parameters_of_world_motion(Camera const& camera, Eigen::Vector3d const& o) {
  Eigen::Matrix3d R;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) R(r, c) = camera.R[3 * c + r];
  const Eigen::Vector3d C(camera.center[0], camera.center[1], camera.center[2]);
  Matrix6 B = Matrix6::Zero();
  B.block<3, 3>(0, 0) = -R;
  B.block<3, 3>(3, 0) = R * skew(C - o);
  B.block<3, 3>(3, 3) = -R;
  return B;
}

std::vector<WorldMotion> joint_rig_step(std::vector<Camera> const& cameras, std::vector<PairEquations> const& pairs) {
  const int n = static_cast<int>(cameras.size());
  Eigen::Vector3d o = Eigen::Vector3d::Zero();
  for (Camera const& c : cameras) o += Eigen::Vector3d(c.center[0], c.center[1], c.center[2]) / n;
  std::vector<Matrix6> B;
  for (Camera const& c : cameras) B.push_back(camera_parameters_of_world_motion(c, o));

  // 1/2 |r + J B (xi_i - xi_j)|^2 per pair: K = B^T H B, q = B^T g with g = -J^T r.
  Eigen::MatrixXd A = Eigen::MatrixXd::Zero(6 * n, 6 * n);
  Eigen::VectorXd b = Eigen::VectorXd::Zero(6 * n);
  for (PairEquations const& p : pairs) {
    const Eigen::Map<const Eigen::Matrix<float, 6, 6>> H(p.e.H.data());
    const Eigen::Map<const Eigen::Matrix<float, 6, 1>> g(p.e.g.data());
    const Matrix6& Bi = B[p.camera];
    const Matrix6 K = Bi.transpose() * H.cast<double>() * Bi;
    const Eigen::Matrix<double, 6, 1> q = Bi.transpose() * g.cast<double>();
    const int i = 6 * p.camera, j = 6 * p.other;
    A.block<6, 6>(i, i) += K;
    A.block<6, 6>(j, j) += K;
    A.block<6, 6>(i, j) -= K;
    A.block<6, 6>(j, i) -= K;
    b.segment<6>(i) += q;
    b.segment<6>(j) -= q;
  }
  // The common motion is free; a pull a millionth of the mean stiffness keeps it near zero.
  const double pull = 1e-6 * A.trace() / (6.0 * n) + 1e-12;
  A.diagonal().array() += pull;
  const Eigen::VectorXd xi = A.ldlt().solve(b);

  std::vector<WorldMotion> motions(n);
  for (int k = 0; k < n; ++k) {
    const Eigen::Vector3d w = xi.segment<3>(6 * k), v = xi.segment<3>(6 * k + 3);
    const double angle = w.norm();
    const Eigen::Matrix3d Q =
        angle > 0 ? Eigen::AngleAxisd(angle, w / angle).toRotationMatrix() : Eigen::Matrix3d::Identity();
    const Eigen::Vector3d s = o - Q * o + v;
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) motions[k].Q[3 * r + c] = Q(r, c);
      motions[k].s[r] = s(r);
    }
  }
  return motions;
}
