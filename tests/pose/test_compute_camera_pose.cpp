#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <string>

#include "src/core/settings.h"
#include "src/pose/align_to_model.h"
#include "src/pose/compute_camera_pose.h"
#include "src/pose/cublas_dynamic.h"
#include "src/render/points.h"
#include "src/render/render_buffer.h"
#include "src/render/render_points.h"
#include "tests/pose/pose_scene.h"
#include "tests/support/io_test_support.h"
#include "tests/support/ketra_test_support.h"

using namespace pose_test;

namespace {

// Eight views of 160 x 120 pixels written with poses 0.5 degrees and 3 pixel footprints off.
// Aligned down to 50 rows: levels of 80 x 60 and 160 x 120 pixels. Made once per process, in the
// folder of the first test that asks: ctest runs each test as its own process, in parallel.
constexpr int views = 8;
constexpr int min_height = 50;

PoseScene const& scene_with_pose_errors() {
  static const PoseScene s = make_pose_scene(io_test::scratch_dir() + "/pose_errors", views, 160, 120, 0.5, 3.0);
  return s;
}

// Prints the rotation and centre errors of a view before and after; true when both halved.
bool halved(int view, Camera const& before, Camera const& after, Camera const& truth) {
  const double r0 = turn_degrees(before, truth), r1 = turn_degrees(after, truth);
  const double c0 = centre_distance(before, truth), c1 = centre_distance(after, truth);
  std::printf("  view %d: rotation %.4f -> %.4f degrees, centre %.5f -> %.5f\n", view, r0, r1, c0, c1);
  return r1 <= 0.5 * r0 && c1 <= 0.5 * c0;
}

// A device test with the BLAS loaded.
class ComputeCameraPose : public KetraTest {
 protected:
  static void SetUpTestSuite() { cublas.load(); }
};

}  // namespace

// Each way of aligning a view halves both errors from its written pose: to the particles of its
// own true depth map (a particle at every other pixel and the full-size level alone keep it quick
// under the sanitizers), to its neighbour's depth map and image warped into it, and to a model of
// its two neighbours with its own measured depth beside its image (both levels in these two).
TEST_F(ComputeCameraPose, EveryAlignmentHalvesThePoseErrorOfAView) {
  PoseScene const& s = scene_with_pose_errors();
  const int view = 3;
  const cloud::ParticleSet own = true_model(s, {view}, 2), neighbours = true_model(s, {2, 4});
  Points points = createPoints(neighbours.particles, neighbours.offsets, neighbours.normals);
  ModelAlignment options;
  options.min_height = min_height;
  options.scene_depth = 2.7f;
  const std::vector<std::pair<const char*, std::function<void(Camera&)>>> alignments = {
      {"own particles",
       [&](Camera& c) { compute_camera_pose(c, own.particles, own.offsets, own.normals, 0.02f, 0.5f, c.height); }},
      {"neighbour's depth map", [&](Camera& c) { compute_camera_pose(c, s.truth[2], s.depth[2], 0.5f, min_height); }},
      {"neighbours' model", [&](Camera& c) { align_camera_to_model(c, points, s.depth[view], options); }}};
  for (auto const& [name, align] : alignments) {
    Camera camera = s.written[view];
    align(camera);
    EXPECT_TRUE(halved(view, s.written[view], camera, s.truth[view])) << name;
  }
  freePoints(points);
}

// A true pose stays, against a model of its two neighbours. With the model's own rendering from
// that pose as its image, the first round finds nothing to correct, so each level ends after one
// rendering. With its real image, aligned at full size alone in two renderings at most (as the
// later improvement passes align), it stays within a tenth of a degree (a fifth of a pixel here)
// and a fifth of a footprint.
TEST_F(ComputeCameraPose, ATruePoseStays) {
  PoseScene const& s = scene_with_pose_errors();
  const int view = 3;
  const cloud::ParticleSet model = true_model(s, {2, 4});
  Points points = createPoints(model.particles, model.offsets, model.normals);
  Camera camera = s.truth[view];
  RenderBuffer rb = createRenderBuffer(camera.width, camera.height);
  render_points(rb, points, camera, 0.02f, 0.0f, empty_depth, 1.0f);
  const std::vector<uchar4> rendered = download(rb.image);
  std::copy(rendered.begin(), rendered.end(), camera.image.data);
  freeRenderBuffer(rb);

  const std::filesystem::path cwd = std::filesystem::current_path(), dir = io_test::scratch_dir();
  std::filesystem::current_path(dir);
  debug_images_camera_pose = true;
  compute_camera_pose(camera, model.particles, model.offsets, model.normals, 0.02f, 0.5f, camera.height);
  debug_images_camera_pose = false;
  std::filesystem::current_path(cwd);

  EXPECT_TRUE(std::filesystem::exists(dir / "rendered_color_0_000.png"));
  EXPECT_TRUE(std::filesystem::exists(dir / "valid_pixels_0_000.png"));
  EXPECT_FALSE(std::filesystem::exists(dir / "rendered_color_0_001.png"));
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(camera.R[i], s.truth[view].R[i], 1e-6f) << i;
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(camera.t[i], s.truth[view].t[i], 1e-6f) << i;

  Camera exact = s.truth[view];
  ModelAlignment options;
  options.min_height = min_height;
  options.scene_depth = 2.7f;
  options.full_size_only = true;
  options.max_full_rounds = 2;
  const std::vector<int> rounds = align_camera_to_model(exact, points, s.depth[view], options);
  ASSERT_EQ(rounds.size(), 1u);
  EXPECT_LE(rounds[0], 2);
  const double footprint = centre_distance(s.written[view], s.truth[view]) / 3.0;
  EXPECT_LT(turn_degrees(exact, s.truth[view]), 0.1);
  EXPECT_LT(centre_distance(exact, s.truth[view]), 0.2 * footprint);
  freePoints(points);
}

// Bad arguments are errors naming the camera.
TEST_F(ComputeCameraPose, InputsThatCannotBeAlignedAreErrors) {
  PoseScene const& s = scene_with_pose_errors();
  Camera camera = s.written[1];
  // Below the smallest level height no level runs: the pose stays and nothing is checked.
  compute_camera_pose(camera, {}, {}, {}, 0.02f, 0.5f, camera.height + 1);
  EXPECT_EQ(std::vector<float>(camera.R, camera.R + 9), std::vector<float>(s.written[1].R, s.written[1].R + 9));
  EXPECT_EQ(std::vector<float>(camera.t, camera.t + 3), std::vector<float>(s.written[1].t, s.written[1].t + 3));
  EXPECT_EQ(message_of([&] { compute_camera_pose(camera, {}, {}, {}, 0.02f, 0.5f, min_height); }),
            "compute_camera_pose: camera 1: the model has no particles");
  EXPECT_EQ(message_of([&] { compute_camera_pose(camera, {}, {}, {}, 0.02f, 1.0f, min_height); }),
            "compute_camera_pose: camera 1: the pyramid factor must lie between 0 and 1, got 1.000000");
  // A depth map of another size than its image, as view files may name them.
  CMatrix<float> half(80, 60);
  EXPECT_EQ(message_of([&] { compute_camera_pose(camera, s.truth[0], half, 0.5f, min_height); }),
            "compute_camera_pose: camera 1: the reference depth map is 80 x 60 pixels, the reference image 160 x "
            "120 pixels");
  Camera no_image = camera;
  no_image.image = CMatrix<uchar4>();
  EXPECT_EQ(message_of([&] { compute_camera_pose(no_image, s.truth[0], s.depth[0], 0.5f, min_height); }),
            "compute_camera_pose: camera 1: its image is 0 x 0 pixels, its size 160 x 120");
  EXPECT_EQ(message_of([&] { align_camera_to_model(camera, Points{}, half, ModelAlignment{}); }),
            "align_camera_to_model: camera 1: its depth map does not have its size");
}
