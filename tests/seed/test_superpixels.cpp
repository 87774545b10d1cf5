#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "dasp/parameters.h"
#include "src/core/back_project.h"
#include "src/core/particle_position.h"
#include "src/seed/create_particles_from_superpixels.h"
#include "src/seed/create_superpixels.h"
#include "src/seed/measured_planes.h"
#include "src/seed/particles_to_images.h"
#include "src/seed/robust_plane_fit.h"
#include "tests/render/render_test_support.h"
#include "tests/support/superpixel_test_support.h"

using namespace sp_test;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// The plane's normal turned towards the camera.
D3 facing(const Camera& camera, const Plane& plane) {
  return plane.d - dot(plane.n, center_of(camera)) < 0 ? plane.n : D3{-plane.n.x, -plane.n.y, -plane.n.z};
}

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
    set.sort();
  }
  float3 point(int x, int y) const {
    return back_project(x, y, depth(x, y), depth.xSize, depth.ySize, camera, 1.0f / 40.0f, 1.0f / 42.0f);
  }
};

// (|centre - c| / fx) * sqrt(points / pi), the root in double.
float expected_radius(const Particle& p, int points) {
  return static_cast<float>((length(make_float3(1, -2, -0.5f) - p.pos) / 40.0f) * std::sqrt(points / M_PI));
}

}  // namespace

// Superpixels with at least 80 % valid depths give a particle on their plane; in float, 0.8f * 10
// exceeds 8 and would drop row 1 too. One or two points give the first point and, as normal, the
// unnormalised vector to the camera centre.
TEST(SuperpixelParticles, EightyPercentValidDepthsKeepASuperpixel) {
  PlaneView v(10, 5);
  v.superpixels = {Superpixel{}};  // an empty superpixel yields nothing
  for (int row = 0; row < 3; ++row) v.superpixels.push_back(block(0, row, 10, 1));
  v.superpixels.push_back(block(3, 3, 1, 1, make_uchar4(1, 2, 3, 255)));
  v.superpixels.push_back(block(5, 4, 2, 1));
  // Row 0: three kinds of missing depth leave 7 points. Row 1: 8 points; the largest float and
  // infinity are not depths. Row 2: all 10.
  v.depth(1, 0) = 0.0f, v.depth(4, 0) = kNaN, v.depth(7, 0) = -kInf;
  v.depth(2, 1) = FLT_MAX, v.depth(5, 1) = kInf;
  v.create();
  ASSERT_EQ(v.set.pixel_indices(), (std::vector<int>{2, 3, 4, 5}));
  for (int k : {0, 1}) {
    const Particle& p = v.set.particles[k];
    EXPECT_NEAR(v.plane.distance(p.pos), 0.0, 1e-5) << k;  // the fit saw only true depths
    EXPECT_FLOAT_EQ(p.radius, expected_radius(p, k == 0 ? 8 : 10));
    EXPECT_EQ(v.set.offsets[k], 0.0f);  // no target depth: no offset
  }
  for (int k : {2, 3}) {
    const Particle& p = v.set.particles[k];
    const float3 first = k == 2 ? v.point(3, 3) : v.point(5, 4), n = make_float3(1, -2, -0.5f) - first;
    EXPECT_EQ(xyz(p.pos), xyz(first));
    EXPECT_EQ(xyz(v.set.normals[k]), xyz(n));
    EXPECT_EQ(xyz(p.init_normal), xyz(n));
    expect_near(p.dir, to_d3(n / length(n)), 1e-6);
    EXPECT_FLOAT_EQ(p.radius, expected_radius(p, k - 1));
  }
  const Particle& p = v.set.particles[2];
  EXPECT_EQ(std::vector<int>({p.color.x, p.color.y, p.color.z, p.camera_index}), std::vector<int>({1, 2, 3, 4}));
}

// A target depth on the plane scaled by 1.2 about the camera centre sets the offset onto it; the
// normal map's mean over the pixels with a target depth replaces the plane normal when more than
// three pixels have one (a NaN target counts, 0 does not).
TEST(SuperpixelParticles, TargetDepthSetsTheOffsetAndTheNormalMapTheNormal) {
  PlaneView v(12, 10);
  v.superpixels = {block(0, 0, 6, 5), block(6, 0, 6, 5), block(0, 5, 6, 5), block(6, 5, 6, 5)};
  CMatrix<float> target(12, 10, 0.0f);  // superpixel 3 has none
  CMatrix<float3> normal_map(12, 10);
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 12; ++x) {
      if (x < 6) target(x, y) = v.depth(x, y) * 1.2f;
      normal_map(x, y) = make_float3(0.1f * x, 0.2f + y, -1.0f);
    }
  target(1, 6) = kNaN;                                 // superpixel 2 loses one point of its fit
  target(6, 0) = target(6, 1) = target(6, 2) = 3.0f;  // superpixel 1: three pixels
  v.create(target, normal_map);
  ASSERT_EQ(v.set.particles.size(), 4u);
  const Plane target_plane{v.plane.n, 1.2 * v.plane.d - 0.2 * dot(v.plane.n, center_of(v.camera))};
  for (int k : {0, 2}) {
    const Particle& p = v.set.particles[k];
    EXPECT_LT(v.set.offsets[k], -0.3f) << k;  // away from the camera
    EXPECT_NEAR(target_plane.distance(particle_position(p, v.set.offsets[k])), 0.0, k == 2 ? 0.01 : 1e-4) << k;
  }
  EXPECT_EQ(v.set.offsets[3], 0.0f);
  for (int k : {1, 3}) {
    expect_near(v.set.normals[k], facing(v.camera, v.plane), 1e-4);
    EXPECT_EQ(xyz(v.set.particles[k].init_normal), xyz(v.set.normals[k]));
  }
  // On an exact plane all weights are about equal: the centre is the mean of the pixels' points.
  D3 mean = {0, 0, 0};
  for (const auto& [x, y] : v.superpixels[3].pixels) {
    const float3 q = v.point(x, y);
    mean = {mean.x + q.x / 30, mean.y + q.y / 30, mean.z + q.z / 30};
  }
  expect_near(v.set.particles[3].pos, mean, 1e-3);
  float3 sum = make_float3(0, 0, 0);
  for (int y = 5; y < 10; ++y)
    for (int x = 0; x < 6; ++x) sum = sum + normal_map(x, y);
  expect_near(v.set.normals[2], to_d3(sum / length(sum)), 1e-6);
}

TEST(RobustPlaneFit, OutlierLosesItsPullAndTheNormalFacesTheCamera) {
  // A 7 x 7 grid on the plane z = 3 + 0.1 x + 0.2 y, and one point 0.5 above it.
  std::vector<float3> points;
  for (int j = 0; j < 7; ++j)
    for (int i = 0; i < 7; ++i) points.push_back(make_float3(0.1f * i, 0.1f * j, 3.0f + 0.01f * i + 0.02f * j));
  points[24].z += 0.5f;
  const D3 n = unit({-0.1, -0.2, 1.0});
  // An unweighted fit would put the centre 0.5 / 49 above the plane and tilt the normal.
  Camera below;  // centre at the origin, below the plane
  float3 c, normal;
  robust_plane_fit(points, below, c, normal);
  EXPECT_NEAR(dot(n, to_d3(c)) - 3.0 * n.z, 0.0, 1e-3);
  expect_near(normal, {-n.x, -n.y, -n.z}, 2e-3);
  Camera above;
  above.center[2] = 10.0f;
  robust_plane_fit(points, above, c, normal);
  expect_near(normal, n, 2e-3);
}

// Only the camera's own particles whose normal lies within 70 degrees of their ray are drawn, as
// the plane through their current position; the rest of the image is 0.
TEST(ParticlesToImages, DrawsTheOwnPlanesSeenAtUpToSeventyDegrees) {
  const Camera camera = turned_camera(12, 8, 2);
  const std::vector<Superpixel> superpixels = {block(0, 0, 4, 4), block(4, 0, 4, 4), block(8, 0, 4, 4),
                                               block(0, 4, 12, 4), Superpixel{}};
  // A particle at depth 2 on the ray of (x, y), its normal turned from dir by `degrees`.
  Set set;
  auto add = [&](int x, int y, double degrees, int superpixel) {
    const D3 C = center_of(camera), r = pixel_ray(camera, x, y), dir = unit({-r.x, -r.y, -r.z});
    const D3 across = unit({dir.y, -dir.x, 0.0});
    const double c = std::cos(degrees * M_PI / 180), s = std::sin(degrees * M_PI / 180);
    Particle p = cloud::particle(make_float3(C.x + 2 * r.x, C.y + 2 * r.y, C.z + 2 * r.z),
                                 make_float3(dir.x, dir.y, dir.z), camera.index);
    p.pixel_index = superpixel;
    set.add(p, 0.0f, make_float3(c * dir.x + s * across.x, c * dir.y + s * across.y, c * dir.z + s * across.z));
  };
  add(1, 2, 69.0, 0);  // drawn
  add(5, 1, 71.0, 1);  // too steep
  add(9, 1, 10.0, 2);  // another view's
  add(3, 5, 0.0, 4);   // empty superpixel
  set.offsets[0] = -0.25f;
  set.particles[2].camera_index = 3;
  CMatrix<float> depth(3, 3, 7.0f);
  CMatrix<float3> normal_map;
  particles_to_images(depth, normal_map, set.particles, set.offsets, set.normals, superpixels, camera, 0.0f, 100.0f);
  ASSERT_EQ(std::vector<int>({depth.xSize, depth.ySize, normal_map.xSize, normal_map.ySize}),
            std::vector<int>({12, 8, 12, 8}));
  const float3 p = particle_position(set.particles[0], set.offsets[0]);
  const Plane plane{to_d3(set.normals[0]), dot(to_d3(set.normals[0]), to_d3(p))};
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 12; ++x)
      if (x < 4 && y < 4) {
        EXPECT_NEAR(depth(x, y), plane_depth(camera, plane, x, y), 1e-5 * depth(x, y)) << x << ", " << y;
        EXPECT_EQ(xyz(normal_map(x, y)), xyz(set.normals[0]));
      } else {
        EXPECT_EQ(depth(x, y), 0.0f) << x << ", " << y;
      }
}

TEST(CreateSuperpixels, PartitionOfTheViewWithMeanColours) {
  const GeneratedView& v = generated(0);  // 120 x 90 with an off-centre principal point
  const int W = v.camera.width, H = v.camera.height;
  double depth_sum = 0;
  int depths = 0;
  for (std::size_t p = 0; p < v.depth.size(); ++p) depth_sum += v.depth.data[p], depths += v.depth.data[p] > 0;
  std::vector<Superpixel> superpixels(3);  // what the vector held is replaced
  superpixels[0].pixels.emplace_back(0, 0);
  testing::internal::CaptureStdout();
  create_superpixels(superpixels, v.depth, v.camera.image, v.camera, depth_sum / depths, 60);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Computing superpixels ...    created " + std::to_string(superpixels.size()) + " superpixels\n");
  ASSERT_GT(superpixels.size(), 20u);
  std::vector<int> owners(W * H, 0);
  for (const Superpixel& s : superpixels) {
    ASSERT_FALSE(s.pixels.empty());
    D3 sum = {0, 0, 0};
    for (const auto& [x, y] : s.pixels) {
      ASSERT_TRUE(x >= 0 && x < W && y >= 0 && y < H) << x << ", " << y;
      ++owners[y * W + x];
      const uchar4 p = v.camera.image(x, y);
      sum = {sum.x + p.x, sum.y + p.y, sum.z + p.z};
    }
    // The mean as a fraction of 255, times 255 and truncated: at most one below the true mean.
    const double n = static_cast<double>(s.pixels.size());
    const double means[3] = {sum.x / n, sum.y / n, sum.z / n};
    const int channels[3] = {s.color.x, s.color.y, s.color.z};
    for (int c = 0; c < 3; ++c)
      EXPECT_TRUE(channels[c] <= means[c] + 1e-6 && channels[c] >= std::floor(means[c]) - 1.0);
    EXPECT_EQ(s.color.w, 255);
  }
  EXPECT_EQ(owners, std::vector<int>(W * H, 1));  // each pixel in exactly one superpixel
}

TEST(CreateSuperpixels, HandsTheLayerThePrincipalPointInImageCoordinates) {
  Camera c = turned_camera(32, 24);  // principal point (7.3, 5.6) in image coordinates
  for (bool image_coordinates : {false, true}) {
    c.image_coordinates = image_coordinates;
    if (image_coordinates) c.K[6] = 7.3f, c.K[7] = 5.6f;
    const dasp::Parameters p = superpixel_parameters(c, 25);
    EXPECT_FLOAT_EQ(p.principal_x, 7.3f) << image_coordinates;
    EXPECT_FLOAT_EQ(p.principal_y, 5.6f) << image_coordinates;
  }
}

// Planes fitted to each pixel's measured neighbourhood, the start of the fine particles with few
// views: a tilted plane comes back exact through the turned camera with its mirrored principal
// point, normals facing the camera; a rod one pixel wide keeps its depth and its background keeps
// its own; a lone wrong depth keeps its measurement and pulls no neighbour; no depth (zero, NaN or
// infinite), no start, and no pull on the neighbours.
TEST(MeasuredPlanes, FitEachPixelsOwnSurface) {
  const Camera camera = turned_camera(24, 20);
  const Plane plane = plane_at(camera, {0.2, -1.0, 0.3}, 2.5);
  CMatrix<float> measured = plane_depth_map(camera, plane);
  CMatrix<float> depth;
  CMatrix<float3> normals;
  measured_planes(depth, normals, measured, camera, kMeasuredPlaneFootprints, kMeasuredPlaneWindow,
                  kMeasuredPlaneWideWindow, 0.0f, 100.0f);
  ASSERT_EQ(depth.xSize, 24);
  ASSERT_EQ(normals.ySize, 20);
  const D3 n = facing(camera, plane);
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 24; ++x) {
      EXPECT_NEAR(depth(x, y), measured(x, y), 1e-3f * measured(x, y)) << x << ", " << y;
      EXPECT_GT(dot(to_d3(normals(x, y)), n), 0.999) << x << ", " << y;
    }

  // Background at depth 3 seen head-on, a vertical rod at depth 1 in column 10, a lone depth of 1.5
  // at (4, 4), and no depth at (18, 15).
  const Camera head_on = pinhole(24, 20, 40.0f);
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 24; ++x) measured(x, y) = x == 10 ? 1.0f : 3.0f;
  measured(4, 4) = 1.5f;
  measured(18, 15) = 0.0f;
  measured(15, 12) = std::numeric_limits<float>::quiet_NaN();
  measured(16, 3) = std::numeric_limits<float>::infinity();
  measured_planes(depth, normals, measured, head_on, kMeasuredPlaneFootprints, kMeasuredPlaneWindow,
                  kMeasuredPlaneWideWindow, 0.0f, 100.0f);
  for (const auto& [x, y] : {std::pair{18, 15}, {15, 12}, {16, 3}}) EXPECT_EQ(depth(x, y), 0.0f) << x << ", " << y;
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 24; ++x) {
      if ((x == 18 && y == 15) || (x == 15 && y == 12) || (x == 16 && y == 3)) continue;
      EXPECT_NEAR(depth(x, y), measured(x, y), 1e-4f) << x << ", " << y;
      // Planes facing the camera at the origin, which looks along +z.
      if (x != 4 || y != 4) {
        EXPECT_LT(normals(x, y).z, -0.999f) << x << ", " << y;
      }
    }
  // The lone depth has no plane: its normal points at the camera along its own ray.
  const float3 towards = normals(4, 4);
  EXPECT_NEAR(towards.x / towards.z, (23.0f - 4.0f - head_on.K[6]) / 40.0f, 1e-5f);
}

// Far, noisy surfaces: where the small window leaves the depth uncertain, a plane comes back from
// the wide window with half the error; on a dome that curves within the wide window the depth
// comes from the fit with a curvature term, whose centre the curvature does not move.
TEST(MeasuredPlanes, WidenOverNoisyPlanesAndFollowCurvedSurfaces) {
  const Camera camera = turned_camera(48, 40);
  std::mt19937 random(7);
  std::normal_distribution<float> noise(0.0f, 0.08f);  // over a tenth of a footprint after 7 x 7 pixels
  const Plane plane = plane_at(camera, {0.3, -1.0, 0.2}, 3.0);
  // The dome z = 3 - (x^2 + y^2) in the camera frame, along each pixel's ray z (u, v, 1).
  const auto dome = [&](int x, int y) {
    const double u = (camera.width - 1 - x - camera.K[6]) / camera.K[0];
    const double v = (camera.height - 1 - y - camera.K[7]) / camera.K[4];
    const double q = u * u + v * v;
    return q > 0.0 ? (std::sqrt(1.0 + 12.0 * q) - 1.0) / (2.0 * q) : 3.0;
  };
  for (const bool curved : {false, true}) {
    CMatrix<float> truth(48, 40), measured(48, 40);
    for (int y = 0; y < 40; ++y)
      for (int x = 0; x < 48; ++x) {
        truth(x, y) = static_cast<float>(curved ? dome(x, y) : plane_depth(camera, plane, x, y));
        measured(x, y) = truth(x, y) + noise(random);
      }
    double error[2] = {};  // mean distance from the truth, small window only and widening
    for (const int wide : {0, 1}) {
      CMatrix<float> depth;
      CMatrix<float3> normals;
      measured_planes(depth, normals, measured, camera, kMeasuredPlaneFootprints, kMeasuredPlaneWindow,
                      wide ? kMeasuredPlaneWideWindow : kMeasuredPlaneWindow, 0.0f, 100.0f);
      for (int y = 8; y < 32; ++y)
        for (int x = 8; x < 40; ++x) error[wide] += std::fabs(depth(x, y) - truth(x, y)) / (24 * 32);
    }
    SCOPED_TRACE(curved ? "dome" : "plane");
    if (curved)
      // 0.98 times; 1.18 where the small plane stands for a curved window, 1.56 when every wide
      // plane is taken.
      EXPECT_LT(error[1], 1.1 * error[0]);
    else
      EXPECT_LT(error[1], 0.6 * error[0]);  // 0.49 times
  }
}
