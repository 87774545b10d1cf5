// Which depth each particle starts from, which pixels give none, how a set is thinned by a value
// per particle, and which particles go back to where they started. Where the particles land for a view file's camera is checked against
// ray-cast truth in tests/app/test_camera_convention.cpp and by the renderer suites.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "device/vector_math.h"
#include "src/core/back_project.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/particles/return_drifted_particles.h"
#include "src/particles/threshold_particles.h"
#include "tests/support/superpixel_test_support.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// Pixels k = y * width + x in `rows` rows, with initial depths a[k], measured depths b[k], colour (k, 7, 7, 9) and
// normal (k, 0, 1).
struct Pixels {
  Camera camera;
  CMatrix<float> initial, measured;
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;

  Pixels(const std::vector<float>& a, const std::vector<float>& b, int index = 0, int rows = 1)
      : camera(sp_test::turned_camera(static_cast<int>(a.size()) / rows, rows, index)),
        initial(camera.width, rows),
        measured(camera.width, rows) {
    std::copy(a.begin(), a.end(), initial.data);
    std::copy(b.begin(), b.end(), measured.data);
  }
  void create() {  // with the run's limits, -1 and 10
    CMatrix<float3> normal_map(initial.xSize, initial.ySize);
    CMatrix<uchar4> image(initial.xSize, initial.ySize);
    for (int k = 0; k < static_cast<int>(initial.size()); ++k) {
      normal_map.data[k] = make_float3(static_cast<float>(k), 0, 1);
      image.data[k] = make_uchar4(k, 7, 7, 9);
    }
    create_particles_from_depthmap(particles, offsets, normals, initial, normal_map, measured, image, camera, -1.0f,
                                   10.0f);
  }
  float3 at(int k, float z) const {
    return back_project(k % camera.width, k / camera.width, z, camera.width, camera.height, camera, 1 / camera.K[0],
                        1 / camera.K[4]);
  }
};

// Particle i carries i in every array, so the survivors' order is visible in each of them.
sp_test::Set numbered(int n) {
  sp_test::Set s;
  for (int i = 0; i < n; ++i) {
    Particle p{};
    p.pixel_index = i;
    s.add(p, float(i), {float(i), 0.0f, 0.0f});
  }
  return s;
}

std::vector<int> order(const sp_test::Set& s) {
  std::vector<int> ids;
  for (size_t k = 0; k < s.particles.size(); ++k) {
    EXPECT_EQ(s.offsets[k], float(s.particles[k].pixel_index));
    EXPECT_EQ(s.normals[k].x, float(s.particles[k].pixel_index));
    ids.push_back(s.particles[k].pixel_index);
  }
  return ids;
}

}  // namespace

// A measured 0 means no measurement, not a point at the camera, whatever the lower limit: the
// particle starts at the initial depth and says so. Measured 3 and initial 2: the ray starts at
// the measurement and the offset moves the particle towards the camera onto the initial depth.
TEST(ParticlesFromDepthmap, UnusableMeasurementFallsBackToInitialDepth) {
  Pixels r(std::vector<float>(8, 2.0f), {kNaN, kInf, -kInf, 0.0f, 10.0f, -0.5f, 11.0f, 3.0f}, 0, 2);
  r.create();
  ASSERT_EQ(r.particles.size(), 8u);
  for (int x = 0; x < 8; ++x) {
    SCOPED_TRACE(x);
    const Particle& p = r.particles[x];
    EXPECT_EQ(p.no_measurement, x < 7);
    sp_test::expect_near(p.pos, sp_test::to_d3(r.at(x, x < 7 ? 2.0f : 3.0f)), 1e-5);
    sp_test::expect_near(p.pos + r.offsets[x] * p.dir, sp_test::to_d3(r.at(x, 2.0f)), 1e-5);
    EXPECT_FLOAT_EQ(p.radius, 2.0f / 40.0f);  // from the initial depth
    EXPECT_EQ(std::vector<int>({p.pixel_index, p.color.x, static_cast<int>(r.normals[x].x)}),
              std::vector<int>({x, x, x}));
  }
  EXPECT_GT(r.offsets[7], 0.0f);
}

// 0 is what a rendered depth image holds where no plane was drawn; the limits are open. A later
// view's particles are appended behind the earlier ones.
TEST(ParticlesFromDepthmap, UnusableInitialDepthYieldsNothingAndViewsAppend) {
  Pixels none({kNaN, kInf, 0.0f, 10.0f, -0.5f, -3.0f}, std::vector<float>(6, 2.0f));
  none.create();
  EXPECT_TRUE(none.particles.empty() && none.offsets.empty() && none.normals.empty());

  Pixels a({2.0f, 2.0f}, {2.0f, 2.0f}, 0), b({4.0f, 0.0f, 4.0f}, {4.0f, 4.0f, 4.0f}, 1);
  a.create();
  b.particles = a.particles, b.offsets = a.offsets, b.normals = a.normals;
  b.create();
  ASSERT_EQ(b.particles.size(), 4u);
  EXPECT_EQ(b.offsets.size(), 4u);
  EXPECT_EQ(std::vector<int>({b.particles[1].camera_index, b.particles[1].pixel_index, b.particles[3].camera_index,
                              b.particles[3].pixel_index}),
            std::vector<int>({0, 1, 1, 2}));
}

// Bounds are inclusive and NaN goes; each hole is filled by the last survivor not yet moved.
TEST(ThresholdParticles, HolesAreFilledByTheLastSurvivors) {
  sp_test::Set s = numbered(5);
  std::vector<int> values{0, 5, 0, 5, 0};
  threshold_particles<int>(values, s.particles, s.offsets, s.normals, 0, 1);
  EXPECT_EQ(order(s), (std::vector<int>{0, 4, 2}));
  EXPECT_EQ(values, (std::vector<int>{0, 5, 0, 5, 0}));

  s = numbered(6);
  std::vector<float> floats{NAN, 3.0f, 0.5f, 4.0f, 1.0f, INFINITY};
  threshold_particles<float>(floats, s.particles, s.offsets, s.normals, 1.0f, 3.0f);
  EXPECT_EQ(order(s), (std::vector<int>{4, 1}));

  floats = {7.0f, 8.0f};
  threshold_particles<float>(floats, s.particles, s.offsets, s.normals, 0.0f, 1.0f);
  EXPECT_TRUE(s.particles.empty() && s.offsets.empty() && s.normals.empty());
}

// Offsets beyond the drift limit (in each particle's own footprints) go back to 0, normals turned
// beyond the turn limit (or NaN) back to init_normal; the rest stand, and each kind is counted.
TEST(ReturnDriftedParticles, FarMovesAndTurnsGoBack) {
  const float turned = 15.0f * 3.14159265f / 180.0f, slightly = 5.0f * 3.14159265f / 180.0f;
  std::vector<Particle> particles(4);
  for (Particle& p : particles) {
    p.radius = 0.01f;
    p.init_normal = make_float3(0.0f, 0.0f, 1.0f);
  }
  particles[3].radius = 0.03f;
  std::vector<float> offsets = {0.004f, -0.006f, 0.0f, 0.012f};
  std::vector<float3> normals = {make_float3(std::sin(slightly), 0.0f, std::cos(slightly)),
                                 make_float3(0.0f, std::sin(turned), std::cos(turned)),
                                 make_float3(kNaN, kNaN, kNaN), make_float3(0.0f, 0.0f, -1.0f)};
  const ReturnedParticles back = return_drifted_particles(particles, offsets, normals, 0.5f, 10.0f);
  EXPECT_EQ(back.moved, 1u);
  EXPECT_EQ(back.turned, 3u);
  EXPECT_EQ(offsets, (std::vector<float>{0.004f, 0.0f, 0.0f, 0.012f}));
  EXPECT_FLOAT_EQ(normals[0].x, std::sin(slightly));
  for (int i = 1; i < 4; ++i) EXPECT_EQ(normals[i].z, 1.0f) << i;
}
