#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "device/vector_math.h"
#include "src/camera.h"
#include "src/particles_from_depthmap.h"

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// A camera as a view file would give it: fx 400, fy 420, principal point (1.3, 2.6) in the file,
// a rotation that permutes the axes and a translation. K holds the mirrored principal point.
Camera make_camera(int width, int height, int index) {
  Camera c;
  c.index = index;
  c.width = width;
  c.height = height;
  c.K[0] = 400.0f;
  c.K[4] = 420.0f;
  c.K[8] = 1.0f;
  c.K[6] = static_cast<float>(width - 1) - 1.3f;
  c.K[7] = static_cast<float>(height - 1) - 2.6f;
  // Rows (0 0 1), (1 0 0), (0 1 0), stored by columns.
  const float rows[3][3] = {{0, 0, 1}, {1, 0, 0}, {0, 1, 0}};
  for (int r = 0; r < 3; ++r)
    for (int col = 0; col < 3; ++col) c.R[3 * col + r] = rows[r][col];
  c.t[0] = 0.5f;
  c.t[1] = -1.0f;
  c.t[2] = 2.0f;
  for (int i = 0; i < 3; ++i) c.center[i] = -(c.R[3 * i] * c.t[0] + c.R[3 * i + 1] * c.t[1] + c.R[3 * i + 2] * c.t[2]);
  return c;
}

// The world point of array pixel (x, y) at depth z, worked out in double from the convention:
// camera frame ((cx - x) z / fx, (cy - y) z / fy, z) with cx, cy as in the file, then R^T (p - t).
float3 expected_world_point(const Camera& c, int x, int y, double z) {
  const double p[3] = {(1.3 - x) * z / 400.0 - c.t[0], (2.6 - y) * z / 420.0 - c.t[1], z - c.t[2]};
  double w[3];
  for (int i = 0; i < 3; ++i) w[i] = c.R[3 * i] * p[0] + c.R[3 * i + 1] * p[1] + c.R[3 * i + 2] * p[2];
  return make_float3(static_cast<float>(w[0]), static_cast<float>(w[1]), static_cast<float>(w[2]));
}

void expect_near(float3 a, float3 b, float tol) {
  EXPECT_NEAR(a.x, b.x, tol);
  EXPECT_NEAR(a.y, b.y, tol);
  EXPECT_NEAR(a.z, b.z, tol);
}

struct ParticleSet {
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
};

struct Images {
  CMatrix<float> initial, measured;
  CMatrix<float3> normals;
  CMatrix<uchar4> image;
  Images(int w, int h) : initial(w, h), measured(w, h), normals(w, h), image(w, h) {
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        normals(x, y) = make_float3(static_cast<float>(x), static_cast<float>(y), 1.0f);
        image(x, y) = make_uchar4(static_cast<unsigned char>(x), static_cast<unsigned char>(y), 7, 9);
      }
  }
};

void create(ParticleSet& s, const Images& im, const Camera& c, float min_depth = 0.5f, float max_depth = 10.0f) {
  create_particles_from_depthmap(s.particles, s.offsets, s.normals, im.initial, im.normals, im.measured, im.image, c,
                                 min_depth, max_depth);
}

}  // namespace

TEST(UsableDepth, FiniteAndStrictlyInside) {
  EXPECT_TRUE(usable_depth(2.0f, 0.5f, 10.0f));
  EXPECT_FALSE(usable_depth(0.5f, 0.5f, 10.0f));
  EXPECT_FALSE(usable_depth(10.0f, 0.5f, 10.0f));
  EXPECT_FALSE(usable_depth(kNaN, -kInf, kInf));
  EXPECT_FALSE(usable_depth(kInf, -kInf, kInf));
  EXPECT_TRUE(usable_depth(FLT_MAX, -1.0f, kInf));
  EXPECT_TRUE(usable_depth(0.0f, -1.0f, 5.0f));  // the run's lower limit of -1 lets 0 through
}

TEST(ParticlesFromDepthmap, PixelsLandOnTheirWorldPoints) {
  const int w = 5, h = 4;
  const Camera cam = make_camera(w, h, 3);
  Images im(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) im.initial(x, y) = im.measured(x, y) = 2.0f + 0.1f * x + 0.05f * y;
  ParticleSet s;
  create(s, im, cam);
  ASSERT_EQ(s.particles.size(), static_cast<std::size_t>(w * h));
  ASSERT_EQ(s.offsets.size(), s.particles.size());
  ASSERT_EQ(s.normals.size(), s.particles.size());
  const float3 center = make_float3(cam.center[0], cam.center[1], cam.center[2]);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const std::size_t i = static_cast<std::size_t>(y * w + x);  // row by row
      const Particle& p = s.particles[i];
      SCOPED_TRACE(testing::Message() << "pixel " << x << ", " << y);
      expect_near(p.pos, expected_world_point(cam, x, y, im.initial(x, y)), 1e-5f);
      const float3 to_center = center - p.pos;
      expect_near(p.dir, to_center / length(to_center), 1e-6f);
      EXPECT_NEAR(length(p.dir), 1.0f, 1e-6f);
      EXPECT_EQ(p.init_normal.x, p.dir.x);
      EXPECT_EQ(p.init_normal.z, p.dir.z);
      EXPECT_EQ(p.pixel_index, y * w + x);
      EXPECT_EQ(p.camera_index, 3);
      EXPECT_EQ(p.color.x, x);
      EXPECT_EQ(p.color.y, y);
      EXPECT_EQ(p.color.w, 9);
      EXPECT_FLOAT_EQ(p.radius, im.initial(x, y) / 400.0f);
      EXPECT_FALSE(p.no_measurement);
      EXPECT_NEAR(s.offsets[i], 0.0f, 1e-5f);
      EXPECT_EQ(s.normals[i].x, static_cast<float>(x));
      EXPECT_EQ(s.normals[i].y, static_cast<float>(y));
    }
}

TEST(ParticlesFromDepthmap, UnusableMeasurementFallsBackToInitialDepth) {
  const float measured[] = {kNaN, kInf, -kInf, 0.5f, 10.0f, 0.4f, 11.0f, 3.0f};
  const int w = 8;
  const Camera cam = make_camera(w, 1, 0);
  Images im(w, 1);
  for (int x = 0; x < w; ++x) {
    im.initial(x, 0) = 2.0f;
    im.measured(x, 0) = measured[x];
  }
  ParticleSet s;
  create(s, im, cam);
  ASSERT_EQ(s.particles.size(), 8u);
  EXPECT_GE(s.particles.capacity(), 1u);  // reserved for the one pixel with both depths usable
  for (int x = 0; x < 7; ++x) {
    SCOPED_TRACE(x);
    EXPECT_TRUE(s.particles[x].no_measurement);
    EXPECT_NEAR(s.offsets[x], 0.0f, 1e-6f);
    expect_near(s.particles[x].pos, expected_world_point(cam, x, 0, 2.0), 1e-5f);
  }
  // Measured 3, initial 2: the ray starts at the measurement and the offset moves the particle
  // towards the camera onto the initial depth; the radius follows the initial depth.
  const Particle& p = s.particles[7];
  EXPECT_FALSE(p.no_measurement);
  expect_near(p.pos, expected_world_point(cam, 7, 0, 3.0), 1e-5f);
  EXPECT_GT(s.offsets[7], 0.0f);
  expect_near(p.pos + s.offsets[7] * p.dir, expected_world_point(cam, 7, 0, 2.0), 1e-5f);
  EXPECT_FLOAT_EQ(p.radius, 2.0f / 400.0f);
}

TEST(ParticlesFromDepthmap, UnusableInitialDepthYieldsNothing) {
  const float initial[] = {kNaN, kInf, 0.5f, 10.0f, 0.2f, -3.0f};
  const Camera cam = make_camera(6, 1, 0);
  Images im(6, 1);
  for (int x = 0; x < 6; ++x) {
    im.initial(x, 0) = initial[x];
    im.measured(x, 0) = 2.0f;
  }
  ParticleSet s;
  create(s, im, cam);
  EXPECT_TRUE(s.particles.empty());
  EXPECT_TRUE(s.offsets.empty());
  EXPECT_TRUE(s.normals.empty());
}

TEST(ParticlesFromDepthmap, LaterViewsAppendBehind) {
  const Camera first = make_camera(2, 1, 0);
  Images a(2, 1);
  a.initial.fill(2.0f);
  a.measured.fill(2.0f);
  const Camera second = make_camera(3, 1, 1);
  Images b(3, 1);
  b.initial.fill(4.0f);
  b.measured.fill(4.0f);
  ParticleSet s;
  create(s, a, first);
  create(s, b, second);
  ASSERT_EQ(s.particles.size(), 5u);
  EXPECT_EQ(s.particles[0].camera_index, 0);
  EXPECT_EQ(s.particles[1].camera_index, 0);
  EXPECT_EQ(s.particles[1].pixel_index, 1);
  EXPECT_EQ(s.particles[2].camera_index, 1);
  EXPECT_EQ(s.particles[2].pixel_index, 0);
  EXPECT_EQ(s.offsets.size(), 5u);
  EXPECT_EQ(s.normals.size(), 5u);
}

TEST(ParticlesFromDepthmap, EmptyImageKeepsArraysAndCapacity) {
  ParticleSet s;
  s.particles.resize(3);
  s.offsets.assign(3, 1.0f);
  s.normals.resize(3);
  s.particles.reserve(10);
  s.offsets.reserve(11);
  s.normals.reserve(12);
  const Camera cam = make_camera(4, 4, 0);
  const CMatrix<float> empty_depth;
  create_particles_from_depthmap(s.particles, s.offsets, s.normals, empty_depth, CMatrix<float3>(), empty_depth,
                                 CMatrix<uchar4>(), cam, -1.0f, 10.0f);
  EXPECT_EQ(s.particles.size(), 3u);
  EXPECT_EQ(s.particles.capacity(), 10u);
  EXPECT_EQ(s.offsets.capacity(), 11u);
  EXPECT_EQ(s.normals.capacity(), 12u);
}
