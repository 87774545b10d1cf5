#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "dasp/parameters.h"
#include "src/seed/create_particles_from_superpixels.h"
#include "src/seed/create_superpixels.h"
#include "src/seed/particles_to_images.h"
#include "tests/render/render_test_support.h"
#include "tests/support/superpixel_test_support.h"

using namespace sp_test;

namespace {

// View 0 of the renderer suites' generated ring: 120 x 90 with an off-centre principal point.
std::vector<Superpixel> cut(const GeneratedView& v, int count, std::string* printed) {
  std::vector<Superpixel> superpixels(3);  // replaced, not appended to
  superpixels[0].pixels.emplace_back(0, 0);
  double sum = 0;
  int n = 0;
  for (std::size_t p = 0; p < v.depth.size(); ++p) sum += v.depth.data[p], n += v.depth.data[p] > 0;
  testing::internal::CaptureStdout();
  create_superpixels(superpixels, v.depth, v.camera.image, v.camera, static_cast<float>(sum / n), count);
  *printed = testing::internal::GetCapturedStdout();
  return superpixels;
}

}  // namespace

TEST(CreateSuperpixels, PartitionOfTheViewWithMeanColours) {
  const GeneratedView& v = generated(0);
  const int W = v.camera.width, H = v.camera.height;
  std::string printed;
  const std::vector<Superpixel> superpixels = cut(v, 60, &printed);
  EXPECT_EQ(printed, "Computing superpixels ...    created " + std::to_string(superpixels.size()) + " superpixels\n");
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

TEST(SuperpixelRoundTrip, PlaneParticlesDrawBackTheMeasuredDepth) {
  // A tilted plane in front of the turned camera, coloured in 8 x 8 pixel checks.
  const Camera camera = turned_camera(32, 24, 1);
  const Plane plane = plane_at(camera, {0.3, -1.0, -0.2}, 3.0);
  CMatrix<float> depth = plane_depth_map(camera, plane);
  CMatrix<uchar4> image(32, 24);
  for (int y = 0; y < 24; ++y)
    for (int x = 0; x < 32; ++x)
      image(x, y) = ((x / 8 + y / 8) % 2) ? make_uchar4(200, 40, 40, 255) : make_uchar4(30, 90, 220, 255);
  std::vector<Superpixel> superpixels;
  testing::internal::CaptureStdout();
  create_superpixels(superpixels, depth, image, camera, 3.0f, 12);
  testing::internal::GetCapturedStdout();
  ASSERT_GT(superpixels.size(), 4u);

  // Holes in the measurement are filled by their superpixel's plane.
  const CMatrix<float> truth = depth;
  depth(5, 5) = depth(20, 12) = depth(30, 22) = 0.0f;
  Set set;
  create_particles_from_superpixels(set.particles, set.offsets, set.normals, superpixels, CMatrix<float>(),
                                    CMatrix<float3>(), depth, camera);
  ASSERT_EQ(set.particles.size(), superpixels.size());
  CMatrix<float> drawn;
  CMatrix<float3> normal_map;
  particles_to_images(drawn, normal_map, set.particles, set.offsets, set.normals, superpixels, camera, -1.0f, 100.0f);
  const D3 facing = plane.d - dot(plane.n, center_of(camera)) < 0 ? plane.n : D3{-plane.n.x, -plane.n.y, -plane.n.z};
  for (int y = 0; y < 24; ++y)
    for (int x = 0; x < 32; ++x) {
      SCOPED_TRACE(testing::Message() << x << ", " << y);
      EXPECT_NEAR(drawn(x, y), truth(x, y), 2e-5 * truth(x, y));
      expect_near(normal_map(x, y), facing, 1e-4);
    }
}
