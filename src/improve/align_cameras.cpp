#include "src/improve/align_cameras.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>

#include "ketra/timer.h"
#include "src/improve/improvement_error.h"
#include "src/improve/view_neighbours.h"
#include "src/improve/view_particles.h"
#include "src/pose/rig_adjustment.h"
#include "src/pose/rig_motion.h"

namespace {

std::vector<Camera> copies(std::vector<Camera*> const& cameras) {
  std::vector<Camera> c;
  for (Camera const* camera : cameras) c.push_back(*camera);
  return c;
}

// The largest turn (degrees) and move between the poses before and the cameras now.
std::pair<double, double> largest_move(std::vector<Camera> const& before, std::vector<Camera*> const& cameras) {
  std::pair<double, double> m{0.0, 0.0};
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    m.first = std::max(m.first, turn_degrees(before[i], *cameras[i]));
    m.second = std::max(m.second, centre_distance(before[i], *cameras[i]));
  }
  return m;
}

// How far the mean of the camera centres moved between before and the cameras now.
double rig_shift(std::vector<Camera> const& before, std::vector<Camera*> const& cameras) {
  double d[3] = {0.0, 0.0, 0.0};
  for (std::size_t i = 0; i < cameras.size(); ++i)
    for (int k = 0; k < 3; ++k) d[k] += (static_cast<double>(cameras[i]->center[k]) - before[i].center[k]) / cameras.size();
  return std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
}

// Step 1: each camera against the model of the others, as the model stands. Returns per camera the
// rounds run at each level, as "coarsest/.../finest".
std::vector<std::string> align_to_other_views(std::vector<Particle> const& particles, std::vector<float> const& offsets,
                                              std::vector<float3> const& normals, std::vector<Camera*> const& cameras,
                                              std::vector<CMatrix<float>> const& measured_depthmaps,
                                              ModelAlignment const& options) {
  std::vector<std::string> rounds(cameras.size());
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    Camera& camera = *cameras[i];
    Points model = points_without_view(particles, offsets, normals, camera.index);
    if (model.positions.data == nullptr)
      throw ImprovementError("camera pose: view " + std::to_string(i) + " has no model of other views to align to");
    ketra::timer::start("camera pose");
    try {
      for (int r : align_camera_to_model(camera, model, measured_depthmaps[i], options))
        rounds[i] += (rounds[i].empty() ? "" : "/") + std::to_string(r);
    } catch (const std::runtime_error& e) {
      freePoints(model);
      throw ImprovementError(e.what());
    }
    ketra::timer::stop("camera pose");
    freePoints(model);
  }
  return rounds;
}

// The views nearest to camera i by the angle of their optical axes, within 60 degrees, at most
// `count`, nearest first; only views with points.
std::vector<int> nearest_views(std::vector<Camera*> const& cameras, std::vector<Points> const& views, std::size_t i,
                               int count) {
  std::vector<int> nearest;
  for (int j : views_facing_alike(cameras, i))
    if (views[j].positions.data != nullptr && static_cast<int>(nearest.size()) < count) nearest.push_back(j);
  return nearest;
}

// Step 2: the joint step over the overlaps, with every view's own measurements.
void align_together(std::vector<Particle> const& particles, std::vector<float3> const& normals,
                    std::vector<Camera*> const& cameras, std::vector<CMatrix<float>> const& measured_depthmaps,
                    RigAlignment const& options) {
  std::vector<Points> views;
  for (Camera const* camera : cameras) views.push_back(measured_points_of_view(particles, normals, camera->index));
  std::vector<PairEquations> pairs;
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    const std::vector<int> nearest = nearest_views(cameras, views, i, options.neighbours);
    std::vector<Points const*> models;
    for (int j : nearest) models.push_back(&views[j]);
    const std::vector<NormalEquations> e = alignment_equations(*cameras[i], models, measured_depthmaps[i], options.model);
    for (std::size_t k = 0; k < nearest.size(); ++k) pairs.push_back({static_cast<int>(i), nearest[k], e[k]});
  }
  for (Points& v : views) free_points_if_any(v);
  const std::vector<WorldMotion> motions = joint_rig_step(copies(cameras), pairs);
  for (std::size_t i = 0; i < cameras.size(); ++i) move_with_world(*cameras[i], motions[i]);
}

}  // namespace

void align_cameras(std::vector<Particle>& particles, std::vector<float> const& offsets, std::vector<float3>& normals,
                   std::vector<Camera*> const& cameras, std::vector<CMatrix<float>> const& measured_depthmaps,
                   std::vector<Camera> const& given, RigAlignment const& options) {
  const std::vector<Camera> start = copies(cameras);
  const std::vector<std::string> rounds =
      align_to_other_views(particles, offsets, normals, cameras, measured_depthmaps, options.model);
  move_particles_with_cameras(particles, normals, start, cameras);

  const std::vector<Camera> aligned = copies(cameras);
  try {
    align_together(particles, normals, cameras, measured_depthmaps, options);
  } catch (const std::runtime_error& e) {
    throw ImprovementError(e.what());
  }
  const std::pair<double, double> together = largest_move(aligned, cameras);

  const std::vector<Camera> before_rig = copies(cameras);
  const WorldMotion back = world_motion_by_scatter(before_rig, given, options.lever);
  for (Camera* camera : cameras) move_with_world(*camera, back);
  move_particles_with_cameras(particles, normals, aligned, cameras);

  for (std::size_t i = 0; i < cameras.size(); ++i)
    std::cout << " camera pose, view " << i << ": turned by " << turn_degrees(start[i], *cameras[i])
              << " degrees, moved by " << centre_distance(start[i], *cameras[i]) << ", rounds " << rounds[i]
              << " (coarse to fine)" << std::endl;
  std::cout << " camera pose, all views: the joint step turned by up to " << together.first << " degrees and moved by up to "
            << together.second << "; the rig was moved back by " << rig_shift(before_rig, cameras) << " and turned back by "
            << turn_degrees(before_rig[0], *cameras[0]) << " degrees" << std::endl;
}
