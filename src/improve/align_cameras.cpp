#include "src/improve/align_cameras.h"

#include <algorithm>
#include <cmath>
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <string>

#include "ketra/timer.h"
#include "src/core/viewer_hooks.h"
#include "src/improve/improvement_error.h"
#include "src/particles/threshold_particles.h"
#include "src/pose/rig_adjustment.h"
#include "src/pose/rig_adjustment.h"
#include "src/pose/rig_motion.h"
#include "src/render/points.h"

namespace {

bool env_flag(const char* name, bool fallback) {
  const char* v = std::getenv(name);
  return v ? std::atoi(v) != 0 : fallback;
}

// The model without the particles of view `view`.
Points model_without(std::vector<Particle> const& particles, std::vector<float> const& offsets,
                     std::vector<float3> const& normals, int view) {
  std::vector<int> others(particles.size());
  for (std::size_t i = 0; i < particles.size(); ++i) others[i] = particles[i].camera_index != view;
  std::vector<Particle> p = particles;
  std::vector<float> o = offsets;
  std::vector<float3> n = normals;
  threshold_particles<int>(others, p, o, n, 1, 1);
  if (p.empty())
    throw ImprovementError("camera pose: view " + std::to_string(view) + " has no model of other views to align to");
  return createPoints(p, o, n);
}

}  // namespace

// Carries the particles of view `view` along with its camera, from pose `before` to `after`: they
// are its measurements, fixed in its frame.
void move_particles_of_view(std::vector<Particle>& particles, std::vector<float3>& normals, int view,
                            Camera const& before, Camera const& after) {
  // world -> camera (before) -> world (after): p' = Ra^T (Rb p + tb - ta); R by columns.
  float M[9], s[3];
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      M[3 * r + c] = 0.0f;
      for (int k = 0; k < 3; ++k) M[3 * r + c] += after.R[3 * r + k] * before.R[3 * c + k];
    }
  }
  for (int r = 0; r < 3; ++r) {
    s[r] = 0.0f;
    for (int k = 0; k < 3; ++k) s[r] += after.R[3 * r + k] * (before.t[k] - after.t[k]);
  }
  auto turn = [&](float3 v) {
    return make_float3(M[0] * v.x + M[1] * v.y + M[2] * v.z, M[3] * v.x + M[4] * v.y + M[5] * v.z,
                       M[6] * v.x + M[7] * v.y + M[8] * v.z);
  };
#pragma omp parallel for schedule(static)
  for (std::size_t i = 0; i < particles.size(); ++i) {
    Particle& p = particles[i];
    if (p.camera_index != view) continue;
    const float3 q = turn(p.pos);
    p.pos = make_float3(q.x + s[0], q.y + s[1], q.z + s[2]);
    p.dir = turn(p.dir);
    p.init_normal = turn(p.init_normal);
    normals[i] = turn(normals[i]);
  }
}

void align_cameras(std::vector<Particle>& particles, std::vector<float> const& offsets,
                   std::vector<float3>& normals, std::vector<Camera*> const& cameras,
                   std::vector<CMatrix<float>> const& measured_depthmaps, std::vector<Camera> const& given,
                   ModelAlignment const& options) {
  const bool leave_one_out = env_flag("QA_LOO", true);
  std::vector<Camera> befores;
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    Camera& cam = *cameras[i];
    const Camera before = cam;
    Points model = leave_one_out ? model_without(particles, offsets, normals, cam.index)
                                 : createPoints(particles, offsets, normals);
    ketra::timer::start("camera pose");
    try {
      align_camera_to_model(cam, model, measured_depthmaps[i], options);
    } catch (const std::runtime_error& e) {
      freePoints(model);
      throw ImprovementError(e.what());
    }
    ketra::timer::stop("camera pose");
    freePoints(model);
    if (env_flag("QA_GS", false)) move_particles_of_view(particles, normals, cam.index, before, cam);
    befores.push_back(before);
    std::cout << " camera pose, view " << i << ": turned by " << turn_degrees(before, cam) << " degrees, moved by "
              << centre_distance(before, cam) << std::endl;
  }
  if (env_flag("QA_JOINT", true)) {
    if (!env_flag("QA_GS", false))
      for (std::size_t i = 0; i < cameras.size(); ++i)
        move_particles_of_view(particles, normals, cameras[i]->index, befores[i], *cameras[i]);
    // The particles of each view alone.
    std::vector<Points> views;
    for (std::size_t j = 0; j < cameras.size(); ++j) {
      std::vector<int> own(particles.size());
      for (std::size_t k = 0; k < particles.size(); ++k) own[k] = particles[k].camera_index == cameras[j]->index;
      std::vector<Particle> p = particles;
      std::vector<float> o = offsets;
      std::vector<float3> n = normals;
      threshold_particles<int>(own, p, o, n, 1, 1);
      // At their measured depths: the view's own measurements, which move with it alone.
      if (env_flag("QA_RAW", true)) std::fill(o.begin(), o.end(), 0.0f);
      views.push_back(p.empty() ? Points{} : createPoints(p, o, n));
    }
    std::vector<PairEquations> pairs;
    const int max_neighbours = std::getenv("QA_NEIGHBOURS") ? std::atoi(std::getenv("QA_NEIGHBOURS")) : 4;
    for (std::size_t i = 0; i < cameras.size(); ++i) {
      const Camera& ci = *cameras[i];
      std::vector<std::pair<float, int>> near;
      for (std::size_t j = 0; j < cameras.size(); ++j) {
        if (j == i || views[j].positions.data == nullptr) continue;
        const float cosine = ci.R[2] * cameras[j]->R[2] + ci.R[5] * cameras[j]->R[5] + ci.R[8] * cameras[j]->R[8];
        if (cosine >= 0.5f) near.push_back({-cosine, static_cast<int>(j)});
      }
      std::sort(near.begin(), near.end());
      if (static_cast<int>(near.size()) > max_neighbours) near.resize(max_neighbours);
      std::vector<Points const*> models;
      for (auto const& [cosine, j] : near) models.push_back(&views[j]);
      const std::vector<NormalEquations> e = alignment_equations(ci, models, measured_depthmaps[i], options);
      for (std::size_t k = 0; k < near.size(); ++k) pairs.push_back({static_cast<int>(i), near[k].second, e[k]});
    }
    for (Points& v : views)
      if (v.positions.data != nullptr) freePoints(v);
    std::vector<Camera> now;
    for (Camera* c : cameras) now.push_back(*c);
    const std::vector<WorldMotion> motions = joint_rig_step(now, pairs);
    for (std::size_t i = 0; i < cameras.size(); ++i) move_with_world(*cameras[i], motions[i]);
    for (std::size_t i = 0; i < cameras.size(); ++i)
      std::cout << " camera pose, view " << i << ", together: turned by " << turn_degrees(now[i], *cameras[i])
                << " degrees, moved by " << centre_distance(now[i], *cameras[i]) << std::endl;
  }
  if (!env_flag("QA_GAUGE", true)) return;
  std::vector<Camera> now;
  for (Camera* c : cameras) now.push_back(*c);
  const double lever = (std::getenv("QA_LEVER") ? std::atof(std::getenv("QA_LEVER")) : 1.0) * options.scene_depth;
  const WorldMotion back = best_world_motion(now, given, lever);
  for (Camera* c : cameras) move_with_world(*c, back);
  std::cout << " camera pose, whole rig moved back by " << centre_distance(now[0], *cameras[0]) << ", turned back by "
            << turn_degrees(now[0], *cameras[0]) << " degrees (view 0)" << std::endl;
}
