#include <gtest/gtest.h>

#include <cfloat>
#include <limits>
#include <vector>

#include "device/vector_math.h"
#include "src/core/camera.h"
#include "src/particles/particles_from_depthmap.h"
#include "tests/support/superpixel_test_support.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// The turned camera of the superpixel tests with fx 400, fy 420 and principal point (1.3, 2.6) as
// in a view file (K holds it mirrored).
Camera make_camera(int width, int height, int index) {
  Camera c = sp_test::turned_camera(width, height, index);
  c.K[0] = 400.0f;
  c.K[4] = 420.0f;
  c.K[6] = static_cast<float>(width - 1) - 1.3f;
  c.K[7] = static_cast<float>(height - 1) - 2.6f;
  return c;
}

// World point of array pixel (x, y) at depth z by the camera convention, in double: camera frame
// ((cx - x) z / fx, (cy - y) z / fy, z) with cx, cy from the file, then R^T (p - t).
float3 world_point(int x, int y, double z) {
  const double p[3] = {(1.3 - x) * z / 400.0 - 0.5, (2.6 - y) * z / 420.0 + 1.0, z - 2.0};
  return make_float3(static_cast<float>(p[1]), static_cast<float>(p[2]), static_cast<float>(p[0]));
}

void expect_near(float3 a, float3 b, float tol) { sp_test::expect_near(a, sp_test::to_d3(b), tol); }

struct Scene {
  CMatrix<float> initial, measured;
  CMatrix<float3> normal_map;
  CMatrix<uchar4> image;
  Camera camera;
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;

  Scene(int w, int h, int index = 0) : initial(w, h), measured(w, h), normal_map(w, h), image(w, h) {
    camera = make_camera(w, h, index);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        normal_map(x, y) = make_float3(static_cast<float>(x), static_cast<float>(y), 1.0f);
        image(x, y) = make_uchar4(static_cast<unsigned char>(x), static_cast<unsigned char>(y), 7, 9);
      }
  }
  void create(float min_depth = 0.5f, float max_depth = 10.0f) {
    create_particles_from_depthmap(particles, offsets, normals, initial, normal_map, measured, image, camera,
                                   min_depth, max_depth);
  }
};

}  // namespace

TEST(UsableDepth, FinitePositiveAndStrictlyInside) {
  // The run's lower limit of -1 does not let 0 (no depth) or negative depths through.
  const float cases[][4] = {{2.0f, 0.5f, 10.0f, 1},  {0.5f, 0.5f, 10.0f, 0},     {10.0f, 0.5f, 10.0f, 0},
                            {kNaN, -kInf, kInf, 0}, {kInf, -kInf, kInf, 0},     {FLT_MAX, -1.0f, kInf, 1},
                            {0.0f, -1.0f, 5.0f, 0}, {-0.5f, -1.0f, 5.0f, 0},    {1e-30f, -1.0f, 5.0f, 1}};
  for (const auto& c : cases)
    EXPECT_EQ(usable_depth(c[0], c[1], c[2]), c[3] == 1) << c[0] << " in " << c[1] << ", " << c[2];
}

TEST(ParticlesFromDepthmap, PixelsLandOnTheirWorldPoints) {
  Scene s(5, 4, 3);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 5; ++x) s.initial(x, y) = s.measured(x, y) = 2.0f + 0.1f * x + 0.05f * y;
  s.create();
  ASSERT_EQ(std::vector<size_t>({s.particles.size(), s.offsets.size(), s.normals.size()}), std::vector<size_t>(3, 20));
  const float3 center = make_float3(1.0f, -2.0f, -0.5f);
  for (int i = 0; i < 20; ++i) {
    const int x = i % 5, y = i / 5;  // row by row
    const Particle& p = s.particles[i];
    SCOPED_TRACE(i);
    expect_near(p.pos, world_point(x, y, s.initial(x, y)), 1e-5f);
    expect_near(p.dir, (center - p.pos) / length(center - p.pos), 1e-6f);
    EXPECT_EQ(p.init_normal.y, p.dir.y);
    EXPECT_EQ(std::vector<int>({p.pixel_index, p.camera_index, p.color.x, p.color.y}), std::vector<int>({i, 3, x, y}));
    EXPECT_FLOAT_EQ(p.radius, s.initial(x, y) / 400.0f);
    EXPECT_FALSE(p.no_measurement);
    EXPECT_NEAR(s.offsets[i], 0.0f, 1e-5f);
    EXPECT_EQ(s.normals[i].x, static_cast<float>(x));
  }
}

TEST(ParticlesFromDepthmap, UnusableMeasurementFallsBackToInitialDepth) {
  // The run's own limits (-1, 10): a measured 0 means no measurement, not a point at the camera.
  const float measured[] = {kNaN, kInf, -kInf, 0.0f, 10.0f, -0.5f, 11.0f, 3.0f};
  Scene s(8, 1);
  for (int x = 0; x < 8; ++x) {
    s.initial(x, 0) = 2.0f;
    s.measured(x, 0) = measured[x];
  }
  s.create(-1.0f, 10.0f);
  ASSERT_EQ(s.particles.size(), 8u);
  for (int x = 0; x < 7; ++x) {
    SCOPED_TRACE(x);
    EXPECT_TRUE(s.particles[x].no_measurement);
    EXPECT_NEAR(s.offsets[x], 0.0f, 1e-6f);
    expect_near(s.particles[x].pos, world_point(x, 0, 2.0), 1e-5f);
  }
  // Measured 3, initial 2: the ray starts at the measurement, the offset moves the particle
  // towards the camera onto the initial depth, and the radius follows the initial depth.
  const Particle& p = s.particles[7];
  EXPECT_FALSE(p.no_measurement);
  expect_near(p.pos, world_point(7, 0, 3.0), 1e-5f);
  EXPECT_GT(s.offsets[7], 0.0f);
  expect_near(p.pos + s.offsets[7] * p.dir, world_point(7, 0, 2.0), 1e-5f);
  EXPECT_FLOAT_EQ(p.radius, 2.0f / 400.0f);
}

TEST(ParticlesFromDepthmap, UnusableInitialDepthYieldsNothing) {
  // 0 is what a rendered depth image holds where no plane was drawn.
  const float initial[] = {kNaN, kInf, 0.0f, 10.0f, -0.5f, -3.0f};
  Scene s(6, 1);
  for (int x = 0; x < 6; ++x) {
    s.initial(x, 0) = initial[x];
    s.measured(x, 0) = 2.0f;
  }
  s.create(-1.0f, 10.0f);
  EXPECT_TRUE(s.particles.empty() && s.offsets.empty() && s.normals.empty());
}

TEST(ParticlesFromDepthmap, LaterViewsAppendBehind) {
  Scene a(2, 1, 0), b(3, 1, 1);
  for (Scene* s : {&a, &b}) {
    s->initial.fill(s == &a ? 2.0f : 4.0f);
    s->measured.fill(s == &a ? 2.0f : 4.0f);
  }
  a.create();
  b.particles = a.particles;
  b.offsets = a.offsets;
  b.normals = a.normals;
  b.create();
  ASSERT_EQ(b.particles.size(), 5u);
  EXPECT_EQ(b.offsets.size(), 5u);
  EXPECT_EQ(std::vector<int>({b.particles[1].camera_index, b.particles[1].pixel_index, b.particles[2].camera_index,
                               b.particles[2].pixel_index}),
            std::vector<int>({0, 1, 1, 0}));
}
