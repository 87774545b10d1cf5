#include "src/improve/view_particles.h"

#include "src/particles/threshold_particles.h"

namespace {

// The particles whose view is (or, with keep_view false, is not) `view`, on the device.
Points select_points(std::vector<Particle> const& particles, std::vector<float> const& offsets,
                     std::vector<float3> const& normals, int view, bool keep_view) {
  std::vector<int> keep(particles.size());
  for (std::size_t i = 0; i < particles.size(); ++i) keep[i] = (particles[i].camera_index == view) == keep_view;
  std::vector<Particle> p = particles;
  std::vector<float> o = offsets;
  std::vector<float3> n = normals;
  threshold_particles<int>(keep, p, o, n, 1, 1);
  return p.empty() ? Points{} : createPoints(p, o, n);
}

}  // namespace

Points points_without_view(std::vector<Particle> const& particles, std::vector<float> const& offsets,
                           std::vector<float3> const& normals, int view) {
  return select_points(particles, offsets, normals, view, false);
}

Points measured_points_of_view(std::vector<Particle> const& particles, std::vector<float3> const& normals, int view) {
  return select_points(particles, std::vector<float>(particles.size(), 0.0f), normals, view, true);
}

void move_particles_of_view(std::vector<Particle>& particles, std::vector<float3>& normals, int view,
                            Camera const& before, Camera const& after) {
  // World to the camera before, and back to the world from the camera after:
  // p' = Ra^T (Rb p + tb - ta). Camera keeps R by columns: element (r, c) at [3 * c + r].
  float M[9], s[3];
  for (int r = 0; r < 3; ++r) {
    s[r] = 0.0f;
    for (int c = 0; c < 3; ++c) {
      M[3 * r + c] = 0.0f;
      for (int k = 0; k < 3; ++k) M[3 * r + c] += after.R[3 * r + k] * before.R[3 * c + k];
    }
    for (int k = 0; k < 3; ++k) s[r] += after.R[3 * r + k] * (before.t[k] - after.t[k]);
  }
  const auto turn = [&](float3 v) {
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

void move_particles_with_cameras(std::vector<Particle>& particles, std::vector<float3>& normals,
                                 std::vector<Camera> const& before, std::vector<Camera*> const& cameras) {
  for (std::size_t i = 0; i < cameras.size(); ++i)
    move_particles_of_view(particles, normals, cameras[i]->index, before[i], *cameras[i]);
}

void free_points_if_any(Points& points) {
  if (points.positions.data != nullptr) freePoints(points);
}
