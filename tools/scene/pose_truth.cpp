#include "tools/scene/pose_truth.h"

#include <Eigen/LU>
#include <Eigen/SVD>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "formats/view_file.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace scene {
namespace {

struct Pose {
  Eigen::Matrix3d R;  // world to camera
  Eigen::Vector3d centre;
};

Pose read_pose(const std::string& path) {
  const ViewFile v = read_view_file(path);
  Pose p;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) p.R(r, c) = v.R[3 * r + c];
  p.centre = -p.R.transpose() * Eigen::Vector3d(v.t[0], v.t[1], v.t[2]);
  return p;
}

// Angle of Ra Rb^T from its skew part and trace, exact for small angles too.
double angle_degrees(const Eigen::Matrix3d& a, const Eigen::Matrix3d& b) {
  const Eigen::Matrix3d m = a * b.transpose();
  const Eigen::Vector3d s(m(2, 1) - m(1, 2), m(0, 2) - m(2, 0), m(1, 0) - m(0, 1));
  return std::atan2(s.norm(), m.trace() - 1.0) * 180.0 / M_PI;
}

PoseError error(const Pose& estimate, const Pose& truth) {
  return {angle_degrees(estimate.R, truth.R), (estimate.centre - truth.centre).norm()};
}

// The rigid motion x -> Q x + s that maps the estimated centres closest to the true ones.
void best_rigid_motion(const std::vector<Pose>& estimate, const std::vector<Pose>& truth, Eigen::Matrix3d& Q,
                       Eigen::Vector3d& s) {
  Eigen::Vector3d me = Eigen::Vector3d::Zero(), mt = Eigen::Vector3d::Zero();
  for (size_t i = 0; i < truth.size(); ++i) {
    me += estimate[i].centre;
    mt += truth[i].centre;
  }
  me /= static_cast<double>(truth.size());
  mt /= static_cast<double>(truth.size());
  Eigen::Matrix3d cov = Eigen::Matrix3d::Zero();
  for (size_t i = 0; i < truth.size(); ++i) cov += (truth[i].centre - mt) * (estimate[i].centre - me).transpose();
  const Eigen::JacobiSVD<Eigen::Matrix3d> svd(cov, Eigen::ComputeFullU | Eigen::ComputeFullV);
  Eigen::Matrix3d d = Eigen::Matrix3d::Identity();
  d(2, 2) = (svd.matrixU() * svd.matrixV().transpose()).determinant() < 0 ? -1.0 : 1.0;
  Q = svd.matrixU() * d * svd.matrixV().transpose();
  s = mt - Q * me;
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0.0 : v.size() % 2 ? v[v.size() / 2] : 0.5 * (v[v.size() / 2 - 1] + v[v.size() / 2]);
}

// The true poses of the scene and the poses of the view files in poses_dir, view by view.
void read_poses(const std::string& scene_dir, const std::string& poses_dir, std::vector<Pose>& truth,
                std::vector<Pose>& estimate) {
  for (int i = 0; std::filesystem::exists(scene_dir + "/" + true_view_file_name(i)); ++i) {
    truth.push_back(read_pose(scene_dir + "/" + true_view_file_name(i)));
    estimate.push_back(read_pose(poses_dir + "/" + view_file_name(i)));
  }
  if (truth.empty()) throw std::runtime_error(scene_dir + " has no true poses (true_view_00.txt)");
}

// The angle of Q and how far x -> Q x + s moves the mean of the estimated centres.
PoseError motion_size(const std::vector<Pose>& estimate, const Eigen::Matrix3d& Q, const Eigen::Vector3d& s) {
  Eigen::Vector3d mean = Eigen::Vector3d::Zero();
  for (const Pose& p : estimate) mean += p.centre / static_cast<double>(estimate.size());
  return {angle_degrees(Q, Eigen::Matrix3d::Identity()), (Q * mean + s - mean).norm()};
}

}  // namespace

PoseTruthFigures compare_poses_with_truth(const std::string& scene_dir, const std::string& poses_dir) {
  std::vector<Pose> truth, estimate;
  read_poses(scene_dir, poses_dir, truth, estimate);
  PoseTruthFigures f;
  const ViewFile first = read_view_file(scene_dir + "/" + true_view_file_name(0));
  std::ifstream average(scene_dir + "/average_depth.txt");
  double depth = 0;
  if (!(average >> depth)) throw std::runtime_error("cannot read " + scene_dir + "/average_depth.txt");
  f.footprint = depth / first.K[0];

  Eigen::Matrix3d Q;
  Eigen::Vector3d s;
  best_rigid_motion(estimate, truth, Q, s);
  f.rig = motion_size(estimate, Q, s);
  for (size_t i = 0; i < truth.size(); ++i) {
    f.absolute.push_back(error(estimate[i], truth[i]));
    // World points move by Q, s: the camera keeps its view of them with R Q^T.
    const Pose moved{estimate[i].R * Q.transpose(), Q * estimate[i].centre + s};
    f.relative.push_back(error(moved, truth[i]));
  }
  return f;
}

std::string format_pose_truth(const PoseTruthFigures& f) {
  std::string out;
  char line[200];
  std::vector<double> columns[4];
  for (size_t i = 0; i < f.absolute.size(); ++i) {
    const PoseError a = f.absolute[i], r = f.relative[i];
    std::snprintf(line, sizeof line, "view %02zu: rotation %.4f degrees, centre %.2f mm; relative %.4f degrees, %.2f mm\n",
                  i, a.degrees, 1000 * a.centre, r.degrees, 1000 * r.centre);
    out += line;
    columns[0].push_back(a.degrees);
    columns[1].push_back(a.centre);
    columns[2].push_back(r.degrees);
    columns[3].push_back(r.centre);
  }
  std::snprintf(line, sizeof line,
                "median: rotation %.4f degrees, centre %.2f mm (%.3f footprints); relative %.4f degrees, %.2f mm "
                "(%.3f footprints)\n",
                median(columns[0]), 1000 * median(columns[1]), median(columns[1]) / f.footprint, median(columns[2]),
                1000 * median(columns[3]), median(columns[3]) / f.footprint);
  out += line;
  std::snprintf(line, sizeof line, "rig: the best rigid motion onto the true centres turns by %.4f degrees and moves by %.2f mm\n",
                f.rig.degrees, 1000 * f.rig.centre);
  out += line;
  return out;
}

RigMotion rig_motion_onto_truth(const std::string& scene_dir, const std::string& poses_dir) {
  std::vector<Pose> truth, estimate;
  read_poses(scene_dir, poses_dir, truth, estimate);
  Eigen::Matrix3d Q;
  Eigen::Vector3d s;
  best_rigid_motion(estimate, truth, Q, s);
  RigMotion m;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) m.Q.m[3 * r + c] = Q(r, c);
  m.s = {s.x(), s.y(), s.z()};
  m.size = motion_size(estimate, Q, s);
  return m;
}

void move_model(std::vector<ModelPoint>& model, const RigMotion& motion) {
  for (ModelPoint& p : model) {
    p.point = motion.Q * p.point + motion.s;
    p.normal = motion.Q * p.normal;
  }
}

}  // namespace scene
