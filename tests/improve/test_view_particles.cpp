// The particles of a model taken apart by the views that measured them.

#include <gtest/gtest.h>

#include "device/vector_math.h"
#include "src/improve/view_particles.h"
#include "src/pose/pose_update.h"
#include "tests/support/ketra_test_support.h"
#include "tests/support/particle_cloud.h"

namespace {

float3 camera_point(Camera const& c, float3 p) {
  float v[3];
  for (int r = 0; r < 3; ++r) v[r] = c.R[r] * p.x + c.R[3 + r] * p.y + c.R[6 + r] * p.z + c.t[r];
  return make_float3(v[0], v[1], v[2]);
}

float3 camera_direction(Camera const& c, float3 d) {
  return camera_point(c, d) - camera_point(c, make_float3(0, 0, 0));
}

class ViewParticles : public KetraTest {};

}  // namespace

// A view's particles move with its camera: in the camera's frame their points, rays and normals
// stay as they were; the other views' particles stay in the world.
TEST_F(ViewParticles, ParticlesMoveWithTheirCameraAndNoOther) {
  Camera before;
  before.R[0] = before.R[4] = before.R[8] = 1.0f;
  apply_pose_update(before, {0.3f, -0.2f, 0.5f, 0.1f, 0.4f, 2.0f});
  Camera after = before;
  apply_pose_update(after, {0.01f, 0.02f, -0.015f, 0.03f, -0.02f, 0.05f});
  std::vector<Particle> particles = {cloud::particle({0.5f, -0.2f, 3.0f}, {0.0f, 0.6f, 0.8f}, 1),
                                     cloud::particle({0.1f, 0.2f, 2.0f}, {0.0f, 0.0f, 1.0f}, 2)};
  std::vector<float3> normals = {make_float3(0.6f, 0.0f, 0.8f), make_float3(1.0f, 0.0f, 0.0f)};
  const std::vector<Particle> original = particles;
  const std::vector<float3> original_normals = normals;
  move_particles_of_view(particles, normals, 1, before, after);

  const float3 seen = camera_point(before, original[0].pos), now = camera_point(after, particles[0].pos);
  EXPECT_LT(length(seen - now), 1e-5f);
  EXPECT_LT(length(camera_direction(before, original[0].dir) - camera_direction(after, particles[0].dir)), 1e-5f);
  EXPECT_LT(length(camera_direction(before, original_normals[0]) - camera_direction(after, normals[0])), 1e-5f);
  EXPECT_EQ(particles[1].pos.x, original[1].pos.x);
  EXPECT_EQ(normals[1].x, original_normals[1].x);
}

// Without its own view a model keeps the other views' particles; at their measured depths a
// view's particles lie at their ray origins whatever their offsets; a view with none gives no
// points.
TEST_F(ViewParticles, TheModelWithoutAViewAndAViewAlone) {
  std::vector<Particle> particles = {cloud::particle({1, 0, 0}, {0, 0, 1}, 0, 0.01f),
                                     cloud::particle({2, 0, 0}, {0, 0, 1}, 1, 0.01f),
                                     cloud::particle({3, 0, 0}, {0, 0, 1}, 0, 0.01f)};
  const std::vector<float> offsets = {0.5f, 0.25f, -0.5f};
  const std::vector<float3> normals(3, make_float3(0, 0, -1));
  Points others = points_without_view(particles, offsets, normals, 1);
  EXPECT_EQ(others.positions.extents.x, 2u);
  EXPECT_EQ(download(others.positions)[2 * 2 + 0], 0.5f);  // z of the first: 0 + 0.5 along its ray
  Points own = measured_points_of_view(particles, normals, 0);
  const std::vector<float> p = download(own.positions);
  EXPECT_EQ(std::vector<float>(p.begin(), p.begin() + 2), (std::vector<float>{1.0f, 3.0f}));
  EXPECT_EQ(std::vector<float>(p.begin() + 4, p.begin() + 6), (std::vector<float>{0.0f, 0.0f}));
  Points none = measured_points_of_view(particles, normals, 5);
  EXPECT_EQ(none.positions.data, nullptr);
  free_points_if_any(others);
  free_points_if_any(own);
  free_points_if_any(none);
}
