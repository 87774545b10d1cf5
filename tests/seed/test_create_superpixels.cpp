#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "dasp/parameters.h"
#include "src/seed/create_particles_from_superpixels.h"
#include "src/seed/create_superpixels.h"
#include "src/seed/particles_to_images.h"
#include "src/app/scene_input.h"
#include "src/core/settings.h"
#include "tests/support/io_test_support.h"
#include "tests/support/superpixel_test_support.h"
#include "tools/scene/scene_files.h"

using namespace sp_test;

namespace {

// One generated 48 x 40 view of the sample scene, read as a run reads it, with the principal
// point off the image centre.
struct View {
  Camera camera;
  CMatrix<float> depth;
  float average_depth = 0.0f;

  View() {
    scene::SceneOptions options;
    options.out_dir = io_test::scratch_path("scene");
    options.views = 2;
    options.width = 48;
    options.height = 40;
    options.principal_offset_x = 6.5;  // so that the mirrored principal point differs
    options.principal_offset_y = -4.5;
    const scene::SceneSummary summary = scene::write_scene(scene::make_default_scene(), options);
    read_view(summary.out_dir + "/" + scene::view_file_name(0), 0, camera, depth);
    average_depth = static_cast<float>(summary.average_depth);
  }
};

std::vector<Superpixel> cut(const View& v, int count, std::string* printed = nullptr) {
  std::vector<Superpixel> superpixels(3);  // replaced, not appended to
  superpixels[0].pixels.emplace_back(0, 0);
  testing::internal::CaptureStdout();
  create_superpixels(superpixels, v.depth, v.camera.image, v.camera, v.average_depth, count);
  const std::string out = testing::internal::GetCapturedStdout();
  if (printed) *printed = out;
  return superpixels;
}

}  // namespace

TEST(CreateSuperpixels, PartitionOfTheViewWithMeanColours) {
  const View v;
  std::string printed;
  const std::vector<Superpixel> superpixels = cut(v, 30, &printed);
  EXPECT_EQ(printed, "Computing superpixels ...    created " + std::to_string(superpixels.size()) + " superpixels\n");
  ASSERT_GT(superpixels.size(), 10u);
  std::vector<int> owners(48 * 40, 0);
  for (const Superpixel& s : superpixels) {
    ASSERT_FALSE(s.pixels.empty());
    D3 sum = {0, 0, 0};
    for (const auto& [x, y] : s.pixels) {
      ASSERT_TRUE(x >= 0 && x < 48 && y >= 0 && y < 40) << x << ", " << y;
      ++owners[y * 48 + x];
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
  EXPECT_EQ(owners, std::vector<int>(48 * 40, 1));  // each pixel in exactly one superpixel
}

TEST(CreateSuperpixels, HandsTheLayerThePrincipalPointInImageCoordinates) {
  View v;
  for (bool image_coordinates : {false, true}) {
    v.camera.image_coordinates = image_coordinates;
    const Camera& c = v.camera;
    const dasp::Parameters p = superpixel_parameters(c, 25);
    EXPECT_EQ(p.principal_x, image_coordinates ? c.K[6] : c.width - 1 - c.K[6]) << image_coordinates;
    EXPECT_EQ(p.principal_y, image_coordinates ? c.K[7] : c.height - 1 - c.K[7]) << image_coordinates;
  }
}

TEST(CreateSuperpixels, DebugImagesOnlyWhenAskedNumberedPerCall) {
  const View v;
  const std::string saved_directory = output_directory;
  output_directory = io_test::scratch_path("out");
  const std::string debug = output_directory + "/debug/";
  std::filesystem::remove_all(debug);
  std::filesystem::create_directories(debug);
  cut(v, 20);
  EXPECT_TRUE(std::filesystem::is_empty(debug));

  debug_write_superpixel_image = true;
  cut(v, 20);
  cut(v, 40);
  debug_write_superpixel_image = false;
  output_directory = saved_directory;
  std::vector<std::string> written;
  for (const auto& e : std::filesystem::directory_iterator(debug)) written.push_back(e.path().filename());
  std::sort(written.begin(), written.end());
  ASSERT_EQ(written, (std::vector<std::string>{"superpixels_0.png", "superpixels_1.png"}));
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
