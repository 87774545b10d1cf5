// Rigid motions of whole rigs: fitting one to the given poses, moving cameras with the world, and
// the joint step that makes pairs of cameras agree.

#include <gtest/gtest.h>

#include <Eigen/Geometry>
#include <cmath>
#include <random>
#include <vector>

#include "src/pose/pose_update.h"
#include "src/pose/rig_adjustment.h"
#include "src/pose/rig_motion.h"

namespace {

// Camera i of n on a ring of radius 3 about the z axis, 1 m up, looking at the origin; R by columns.
Camera ring_camera(int i, int n) {
  const double a = 2.0 * M_PI * i / n;
  const Eigen::Vector3d C(3.0 * std::cos(a), 3.0 * std::sin(a), 1.0);
  const Eigen::Vector3d z = -C.normalized();
  const Eigen::Vector3d x = z.cross(Eigen::Vector3d::UnitZ()).normalized(), y = z.cross(x);
  Camera c;
  c.index = i;
  for (int k = 0; k < 3; ++k) {
    c.R[3 * k + 0] = static_cast<float>(x(k));
    c.R[3 * k + 1] = static_cast<float>(y(k));
    c.R[3 * k + 2] = static_cast<float>(z(k));
    c.center[k] = static_cast<float>(C(k));
  }
  for (int r = 0; r < 3; ++r) c.t[r] = -(c.R[r] * c.center[0] + c.R[3 + r] * c.center[1] + c.R[6 + r] * c.center[2]);
  return c;
}

std::vector<Camera> ring(int n) {
  std::vector<Camera> r;
  for (int i = 0; i < n; ++i) r.push_back(ring_camera(i, n));
  return r;
}

// The world motion p -> p + w x (p - o) + v (to first order), exactly as a rotation about o.
WorldMotion small_motion(Eigen::Vector3d const& w, Eigen::Vector3d const& v, Eigen::Vector3d const& o) {
  const Eigen::Matrix3d Q = Eigen::AngleAxisd(w.norm(), w.normalized()).toRotationMatrix();
  const Eigen::Vector3d s = o - Q * o + v;
  WorldMotion m;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) m.Q[3 * r + c] = Q(r, c);
    m.s[r] = s(r);
  }
  return m;
}

void expect_same_pose(Camera const& a, Camera const& b, double degrees, double distance) {
  EXPECT_LT(turn_degrees(a, b), degrees);
  EXPECT_LT(centre_distance(a, b), distance);
}

}  // namespace

// Given poses that are one rigid motion of the cameras are met exactly whatever the scatter, also
// by cameras on a line, where only the orientations settle the turn about it. Given poses with an
// error of their own per camera (0.3 degrees, 2 mm on a ring of 3 m) put the rig closer to the
// truth when centres and turns count by their scatter than with the turns weighed by the scene's
// depth, which lets the mean of the turn errors turn the whole rig. turn_degrees keeps its digits
// for small turns.
TEST(RigMotion, TheMotionByScatterPutsTheRigWhereTheGivenPosesSayBest) {
  std::vector<Camera> line;
  for (int i = 0; i < 6; ++i) {
    Camera c = ring_camera(0, 8);
    move_with_world(c, small_motion({0, 0, 0}, {0.0, 0.4 * i, 0.0}, {0, 0, 0}));
    line.push_back(c);
  }
  const WorldMotion away = small_motion({0.01, -0.02, 0.03}, {0.05, 0.02, -0.04}, {0.3, 0.1, 0.5});
  for (const std::vector<Camera>& given : {ring(16), line}) {
    std::vector<Camera> moved = given;
    for (Camera& c : moved) move_with_world(c, away);
    EXPECT_NEAR(turn_degrees(moved[3], given[3]), std::sqrt(0.0014) * 180.0 / M_PI, 1e-3);
    const WorldMotion fit = world_motion_by_scatter(moved, given, 3.0);
    for (Camera& c : moved) move_with_world(c, fit);
    for (std::size_t i = 0; i < given.size(); ++i) expect_same_pose(moved[i], given[i], 1e-4, 1e-5);
  }
  Camera turned = line[0];
  apply_pose_update(turned, {1e-6f, 0, 0, 0, 0, 0});
  // Float rotations keep a turn of 1e-6 to about 0.1 %; the arc cosine of the trace would give 0.
  EXPECT_NEAR(turn_degrees(line[0], turned), 1e-6 * 180.0 / M_PI, 1e-2 * 1e-6 * 180.0 / M_PI);

  std::mt19937 random(7);
  std::normal_distribution<double> normal(0.0, 1.0);
  const std::vector<Camera> truth = ring(16);
  double by_scatter = 0.0, by_depth = 0.0;
  for (int trial = 0; trial < 10; ++trial) {
    std::vector<Camera> given = truth;
    for (Camera& c : given) {
      const Eigen::Vector3d w(normal(random), normal(random), normal(random)), v(normal(random), normal(random), normal(random));
      const Eigen::Vector3d C(c.center[0], c.center[1], c.center[2]);
      move_with_world(c, small_motion(0.3 * M_PI / 180.0 * w.normalized(), 0.002 * v.normalized(), C));
    }
    std::vector<Camera> scatter = truth, depth = truth;
    const WorldMotion a = world_motion_by_scatter(truth, given, 3.0), b = best_world_motion(truth, given, 3.0);
    for (std::size_t i = 0; i < truth.size(); ++i) {
      move_with_world(scatter[i], a);
      move_with_world(depth[i], b);
      by_scatter += centre_distance(scatter[i], truth[i]) / 160.0;
      by_depth += centre_distance(depth[i], truth[i]) / 160.0;
    }
  }
  EXPECT_LT(by_scatter, 0.75 * by_depth) << by_scatter << " against " << by_depth;
  EXPECT_LT(by_scatter, 0.0015);
}

// Moving a camera with a small world motion is, to first order, the update of its own parameters
// that camera_parameters_of_world_motion gives.
TEST(RigAdjustment, WorldMotionsAndCameraParametersAgree) {
  const Eigen::Vector3d o(0.2, -0.1, 0.7);
  const Eigen::Vector3d w(2e-4, -3e-4, 1e-4), v(4e-4, 1e-4, -2e-4);
  for (const Camera& camera : ring(5)) {
    Camera by_world = camera, by_parameters = camera;
    move_with_world(by_world, small_motion(w, v, o));
    Eigen::Matrix<double, 6, 1> xi;
    xi << w, v;
    const Eigen::Matrix<double, 6, 1> x = camera_parameters_of_world_motion(camera, o) * xi;
    PoseUpdate update;
    for (int k = 0; k < 6; ++k) update[k] = static_cast<float>(x(k));
    apply_pose_update(by_parameters, update);
    expect_same_pose(by_world, by_parameters, 2e-5, 2e-6);
    EXPECT_GT(centre_distance(by_world, camera), 1e-4);
  }
}

// Pairs around a ring whose equations put each camera's best pose relative to its neighbour where
// known motions would: one joint step recovers every camera's motion relative to the others, while
// the rig as a whole stays where it stands.
TEST(RigAdjustment, OneJointStepMakesAllPairsAgree) {
  const int n = 8;
  const std::vector<Camera> cameras = ring(n);
  Eigen::Vector3d o = Eigen::Vector3d::Zero();
  for (const Camera& c : cameras) o += Eigen::Vector3d(c.center[0], c.center[1], c.center[2]) / n;
  std::vector<Eigen::Matrix<double, 6, 1>> truth(n);
  Eigen::Matrix<double, 6, 1> mean = Eigen::Matrix<double, 6, 1>::Zero();
  for (int i = 0; i < n; ++i) {
    truth[i] << 1e-4 * std::sin(i), 2e-4 * std::cos(2 * i), -1e-4 * i / n, 3e-4 * std::cos(i), -2e-4 * std::sin(3 * i),
        1e-4 * i / n;
    mean += truth[i] / n;
  }
  std::vector<PairEquations> pairs;
  for (int i = 0; i < n; ++i)
    for (int step : {1, 2}) {
      const int j = (i + step) % n;
      // Any well-conditioned information, different per pair.
      Eigen::Matrix<double, 6, 6> J = Eigen::Matrix<double, 6, 6>::Identity() * (1.0 + i);
      J(0, 3) = 0.5, J(4, 1) = -0.3 * step, J(5, 2) = 0.2;
      const Eigen::Matrix<double, 6, 6> H = J.transpose() * J;
      const Eigen::Matrix<double, 6, 1> g = H * camera_parameters_of_world_motion(cameras[i], o) * (truth[i] - truth[j]);
      PairEquations p{i, j, {}};
      for (int k = 0; k < 36; ++k) p.e.H[k] = static_cast<float>(H.data()[k]);
      for (int k = 0; k < 6; ++k) p.e.g[k] = static_cast<float>(g(k));
      pairs.push_back(p);
    }
  const std::vector<WorldMotion> motions = joint_rig_step(cameras, pairs);
  ASSERT_EQ(motions.size(), static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) {
    Camera expected = cameras[i], got = cameras[i];
    move_with_world(expected, small_motion((truth[i] - mean).head<3>(), (truth[i] - mean).tail<3>(), o));
    move_with_world(got, motions[i]);
    expect_same_pose(got, expected, 1e-4, 1e-5);
  }
}
