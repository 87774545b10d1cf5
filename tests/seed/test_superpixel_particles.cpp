#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <vector>

#include "src/core/back_project.h"
#include "src/seed/create_particles_from_superpixels.h"
#include "src/core/particle_position.h"
#include "src/seed/particles_to_images.h"
#include "src/seed/robust_plane_fit.h"
#include "tests/support/superpixel_test_support.h"

using namespace sp_test;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();
constexpr double kPi = 3.141592653589793;

// A tilted plane about 2.5 units in front of the turned camera, and a view of it.
struct PlaneView {
  Camera camera;
  Plane plane;
  CMatrix<float> depth;
  std::vector<Superpixel> superpixels;
  Set set;

  PlaneView(int w, int h) : camera(turned_camera(w, h, 4)), plane(plane_at(camera, {0.2, -1.0, 0.3}, 2.5)) {
    depth = plane_depth_map(camera, plane);
  }
  void create(const CMatrix<float>& target = {}, const CMatrix<float3>& normal_map = {}) {
    create_particles_from_superpixels(set.particles, set.offsets, set.normals, superpixels, target, normal_map, depth,
                                      camera);
    ASSERT_EQ(set.offsets.size(), set.particles.size());
    ASSERT_EQ(set.normals.size(), set.particles.size());
    set.sort();
  }
  float distance_to_center(const Particle& p) const { return length(make_float3(1, -2, -0.5f) - p.pos); }
  // (|centre - c| / fx) * sqrt(points / pi), the root in double.
  float expected_radius(const Particle& p, int points) const {
    return static_cast<float>((distance_to_center(p) / 40.0f) * std::sqrt(points / kPi));
  }
};

// The plane normal, turned to face the camera.
D3 facing_normal(const PlaneView& v) {
  const D3 n = v.plane.n;
  return v.plane.d - dot(n, center_of(v.camera)) < 0 ? n : D3{-n.x, -n.y, -n.z};
}

}  // namespace

TEST(SuperpixelParticles, EightOfTenValidDepthsKeepASuperpixelSevenDropIt) {
  PlaneView v(10, 4);
  v.superpixels.push_back(Superpixel{});  // an empty superpixel yields nothing
  for (int row = 0; row < 4; ++row) v.superpixels.push_back(block(0, row, 10, 1));
  // Row 0: three kinds of missing depth leave 7 points. Row 1: 8 points; the largest float and
  // infinity are not depths. In float, 0.8f * 10 exceeds 8 and would drop row 1 as well.
  v.depth(1, 0) = 0.0f;
  v.depth(4, 0) = kNaN;
  v.depth(7, 0) = -kInf;
  v.depth(2, 1) = FLT_MAX;
  v.depth(5, 1) = kInf;
  v.depth(9, 3) = 0.0f;  // row 3: 9 points
  v.create();
  ASSERT_EQ(v.set.pixel_indices(), (std::vector<int>{2, 3, 4}));
  const Particle& p = v.set.particles[0];
  EXPECT_NEAR(v.plane.distance(p.pos), 0.0, 1e-5);  // the fit saw only true depths
  EXPECT_FLOAT_EQ(p.radius, v.expected_radius(p, 8));
  EXPECT_FLOAT_EQ(v.set.particles[2].radius, v.expected_radius(v.set.particles[2], 9));
}

TEST(SuperpixelParticles, OneOrTwoPointsGiveTheFirstPointAndAnUnnormalisedNormalTowardsTheCamera) {
  PlaneView v(8, 4);
  v.superpixels = {block(3, 1, 1, 1, make_uchar4(1, 2, 3, 255)), block(5, 2, 2, 1, make_uchar4(4, 5, 6, 255)),
                   block(0, 0, 3, 1)};
  v.depth(0, 0) = 0.0f;  // the third keeps 2 of 3 points: 2.4 > 2, dropped
  v.create();
  ASSERT_EQ(v.set.pixel_indices(), (std::vector<int>{0, 1}));
  const float3 center = make_float3(1, -2, -0.5f);
  const int first_x[] = {3, 5}, first_y[] = {1, 2}, points[] = {1, 2};
  for (int k = 0; k < 2; ++k) {
    SCOPED_TRACE(k);
    const Particle& p = v.set.particles[k];
    const float3 first = back_project(first_x[k], first_y[k], v.depth(first_x[k], first_y[k]), 8, 4, v.camera,
                                      1.0f / 40.0f, 1.0f / 42.0f);
    EXPECT_EQ(xyz(p.pos), xyz(first));
    const float3 n = center - first;
    EXPECT_EQ(xyz(p.init_normal), xyz(n));
    EXPECT_GT(length(n), 2.0f);  // not normalised
    EXPECT_EQ(xyz(v.set.normals[k]), xyz(n));
    EXPECT_EQ(v.set.offsets[k], 0.0f);
    expect_near(p.dir, to_d3(n / length(n)), 1e-6);
    EXPECT_FLOAT_EQ(p.radius, v.expected_radius(p, points[k]));
    EXPECT_EQ(std::vector<int>({p.color.x, p.color.y, p.color.z, p.camera_index, p.no_measurement}),
              std::vector<int>({v.superpixels[k].color.x, v.superpixels[k].color.y, v.superpixels[k].color.z, 4, 0}));
  }
}

TEST(SuperpixelParticles, PlanarSuperpixelGivesItsPlaneFacingTheCamera) {
  PlaneView v(12, 10);
  v.superpixels = {block(0, 0, 6, 5), block(6, 5, 6, 5, make_uchar4(200, 100, 50, 255))};
  v.create();
  ASSERT_EQ(v.set.particles.size(), 2u);
  const D3 facing = facing_normal(v);
  for (int k = 0; k < 2; ++k) {
    SCOPED_TRACE(k);
    const Particle& p = v.set.particles[k];
    EXPECT_NEAR(v.plane.distance(p.pos), 0.0, 1e-5);
    expect_near(p.init_normal, facing, 1e-4);
    EXPECT_EQ(xyz(v.set.normals[k]), xyz(p.init_normal));  // no normal map: the plane normal
    EXPECT_EQ(v.set.offsets[k], 0.0f);                      // no target depth: no offset
    expect_near(p.dir, to_d3((make_float3(1, -2, -0.5f) - p.pos) / v.distance_to_center(p)), 1e-6);  // unit
    EXPECT_FLOAT_EQ(p.radius, v.expected_radius(p, 30));
    EXPECT_EQ(std::vector<int>({p.pixel_index, p.color.x, p.color.w}),
              std::vector<int>({k, v.superpixels[k].color.x, 255}));
  }
  // On an exact plane all weights are about equal: the centre is the mean of the pixels' points.
  D3 mean = {0, 0, 0};
  for (const auto& [x, y] : v.superpixels[1].pixels) {
    const D3 q = to_d3(back_project(x, y, v.depth(x, y), 12, 10, v.camera, 1.0f / 40.0f, 1.0f / 42.0f));
    mean = {mean.x + q.x / 30, mean.y + q.y / 30, mean.z + q.z / 30};
  }
  expect_near(v.set.particles[1].pos, mean, 1e-3);
}

TEST(SuperpixelParticles, TargetDepthOnAParallelPlaneSetsTheOffset) {
  PlaneView v(12, 10);
  v.superpixels = {block(0, 0, 6, 5), block(6, 0, 6, 5), block(0, 5, 6, 5)};
  // The target is the plane scaled by 1.2 about the camera centre: a parallel plane further away.
  CMatrix<float> target(12, 10);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 12; ++x) target(x, y) = v.depth(x, y) * 1.2f;
  for (int y = 0; y < 5; ++y)
    for (int x = 6; x < 12; ++x) target(x, y) = 0.0f;  // superpixel 1 has no target
  target(1, 6) = kNaN;                                 // superpixel 2 loses one pixel
  v.create(target);
  ASSERT_EQ(v.set.particles.size(), 3u);
  const D3 C = center_of(v.camera);
  const Plane target_plane{v.plane.n, 1.2 * v.plane.d - 0.2 * dot(v.plane.n, C)};

  const Particle& p = v.set.particles[0];
  const float t = v.set.offsets[0];
  EXPECT_NEAR(t, -0.2f * v.distance_to_center(p), 1e-4f);  // away from the camera
  EXPECT_NEAR(target_plane.distance(particle_position(p, t)), 0.0, 1e-4);
  expect_near(v.set.normals[0], facing_normal(v), 1e-4);  // no normal map: still the plane normal

  EXPECT_EQ(v.set.offsets[1], 0.0f);
  // Without the NaN pixel the fit still lands near the target plane.
  EXPECT_TRUE(std::isfinite(v.set.offsets[2]));
  EXPECT_NEAR(target_plane.distance(particle_position(v.set.particles[2], v.set.offsets[2])), 0.0, 0.01);
}

TEST(SuperpixelParticles, MeanNormalOfTheMapNeedsMoreThanThreeCoveredPixels) {
  PlaneView v(15, 2);
  v.superpixels = {block(0, 0, 5, 2), block(5, 0, 5, 2), block(10, 0, 5, 2)};
  CMatrix<float3> normal_map(15, 2);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 15; ++x) normal_map(x, y) = make_float3(0.1f * x, 0.2f + y, -1.0f);
  CMatrix<float> target(15, 2);
  // Superpixel 0: 3 pixels with a target depth. Superpixel 1: 4, one of them NaN, which is not 0
  // and so counts for the normal. Superpixel 2: none.
  for (int x : {0, 2, 4}) target(x, 1) = 2.0f;
  for (int x : {5, 6, 8}) target(x, 0) = 2.0f;
  target(9, 1) = kNaN;
  v.create(target, normal_map);
  ASSERT_EQ(v.set.particles.size(), 3u);
  for (int k : {0, 2}) EXPECT_EQ(xyz(v.set.normals[k]), xyz(v.set.particles[k].init_normal)) << k;
  const float3 sum = normal_map(5, 0) + normal_map(6, 0) + normal_map(8, 0) + normal_map(9, 1);
  expect_near(v.set.normals[1], to_d3(sum / length(sum)), 1e-6);
  EXPECT_EQ(v.set.offsets[2], 0.0f);
}

TEST(RobustPlaneFit, OutlierLosesItsPullAndTheNormalFacesTheCamera) {
  // A 7 x 7 grid on the plane z = 3 + 0.1 x + 0.2 y, and one point 0.5 above it.
  std::vector<float3> points;
  for (int j = 0; j < 7; ++j)
    for (int i = 0; i < 7; ++i) {
      const float x = 0.1f * i, y = 0.1f * j;
      points.push_back(make_float3(x, y, 3.0f + 0.1f * x + 0.2f * y));
    }
  points[24].z += 0.5f;
  const D3 n = unit({-0.1, -0.2, 1.0});
  const double d = 3.0 * n.z;
  // An unweighted fit would put the centre 0.5 / 49 above the plane and tilt the normal.
  Camera below;  // centre at the origin, below the plane
  float3 c, normal;
  robust_plane_fit(points, below, c, normal);
  EXPECT_NEAR(dot(n, to_d3(c)) - d, 0.0, 1e-3);
  expect_near(normal, {-n.x, -n.y, -n.z}, 2e-3);

  Camera above;
  above.center[2] = 10.0f;
  robust_plane_fit(points, above, c, normal);
  expect_near(normal, n, 2e-3);
}

namespace {

// Adds a particle on the ray of pixel (x, y) at camera depth `depth` of `camera`, its dir towards
// the centre and its normal turned from dir by `degrees` about an axis across the ray.
void add_on_ray(Set& set, const Camera& camera, int x, int y, double depth, double degrees, int superpixel) {
  const D3 C = center_of(camera), r = pixel_ray(camera, x, y);
  Particle p{};
  p.pos = make_float3(C.x + depth * r.x, C.y + depth * r.y, C.z + depth * r.z);
  const D3 dir = unit({-r.x, -r.y, -r.z});
  p.dir = make_float3(dir.x, dir.y, dir.z);
  const D3 across = unit({dir.y, -dir.x, 0.0});  // perpendicular to dir
  const double a = degrees * kPi / 180.0, c = std::cos(a), s = std::sin(a);
  p.camera_index = camera.index;
  p.pixel_index = superpixel;
  set.particles.push_back(p);
  set.offsets.push_back(0.0f);
  set.normals.push_back(make_float3(c * dir.x + s * across.x, c * dir.y + s * across.y, c * dir.z + s * across.z));
}

}  // namespace

TEST(ParticlesToImages, DrawsTheOwnPlanesSeenAtUpToSeventyDegrees) {
  const Camera camera = turned_camera(12, 8, 2);
  const std::vector<Superpixel> superpixels = {block(0, 0, 4, 4), block(4, 0, 4, 4), block(8, 0, 4, 4),
                                               block(0, 4, 12, 4), Superpixel{}};
  Set set;
  add_on_ray(set, camera, 1, 2, 2.0, 69.0, 0);  // drawn
  add_on_ray(set, camera, 5, 1, 2.0, 71.0, 1);  // too steep
  add_on_ray(set, camera, 9, 1, 2.0, 10.0, 2);  // another view's
  add_on_ray(set, camera, 3, 5, 2.0, 0.0, 4);   // empty superpixel
  set.offsets[0] = -0.25f;  // the plane passes through the current position
  set.particles[2].camera_index = 3;
  CMatrix<float> depth(3, 3, 7.0f);
  CMatrix<float3> normal_map;
  particles_to_images(depth, normal_map, set.particles, set.offsets, set.normals, superpixels, camera, 0.0f, 100.0f);
  ASSERT_EQ(std::vector<int>({depth.xSize, depth.ySize, normal_map.xSize, normal_map.ySize}),
            std::vector<int>({12, 8, 12, 8}));

  const float3 p = particle_position(set.particles[0], set.offsets[0]);
  const Plane plane{to_d3(set.normals[0]), dot(to_d3(set.normals[0]), to_d3(p))};
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x) {
      SCOPED_TRACE(testing::Message() << x << ", " << y);
      if (x < 4 && y < 4) {
        EXPECT_NEAR(depth(x, y), plane_depth(camera, plane, x, y), 1e-5 * depth(x, y));
        EXPECT_EQ(xyz(normal_map(x, y)), xyz(set.normals[0]));
      } else {
        EXPECT_EQ(depth(x, y), 0.0f);
      }
    }
}

TEST(ParticlesToImages, DepthOutsideTheOpenRangeOrNotFiniteWritesZeroButKeepsTheNormal) {
  // Identity pose, fx = fy = 1, principal point at the middle of a 3 x 1 image: the three rays
  // have x = 1, 0, -1 at depth 1. The plane faces the camera at 45 degrees through (0, 0, 2), so
  // the middle pixel sees it at depth 2, the last at depth 1, and the first runs parallel to it.
  Camera camera;
  camera.width = 3;
  camera.height = 1;
  camera.K[0] = camera.K[4] = camera.K[8] = camera.K[6] = 1.0f;
  camera.R[0] = camera.R[4] = camera.R[8] = 1.0f;
  std::vector<Particle> particles(1);
  particles[0].pos = make_float3(0, 0, 2);
  particles[0].dir = make_float3(0, 0, -1);
  const float s = std::sqrt(0.5f);
  const std::vector<float> offsets = {0.0f};
  const std::vector<float3> normals = {make_float3(s, 0, -s)};
  const std::vector<Superpixel> superpixels = {block(0, 0, 3, 1)};

  struct Case {
    float min_depth, max_depth;
    std::vector<float> depths;
  };
  const Case cases[] = {{-1.0f, FLT_MAX, {0.0f, 2.0f, 1.0f}}, {1.0f, 2.0f, {0.0f, 0.0f, 0.0f}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.min_depth << " .. " << c.max_depth);
    CMatrix<float> depth;
    CMatrix<float3> normal_map;
    particles_to_images(depth, normal_map, particles, offsets, normals, superpixels, camera, c.min_depth, c.max_depth);
    EXPECT_EQ(std::vector<float>(depth.data, depth.data + 3), c.depths);
    for (int x = 0; x < 3; ++x) EXPECT_EQ(xyz(normal_map(x, 0)), xyz(normals[0]));
  }
}
