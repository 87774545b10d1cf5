#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "src/core/camera.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/app/scene_input.h"
#include "tests/support/generated_scene.h"
#include "tools/scene/scene_files.h"
#include "tools/scene/surface_distance.h"

namespace fs = std::filesystem;

// Particles made by the program's own reader and back-projection from a generated scene lie on
// the analytic surfaces, within float rounding and the millimetre steps of the depth files: the
// camera convention of the view files is the one the program uses.
TEST(CameraConvention, ParticlesFromGeneratedDepthLieOnTheTrueSurfaces) {
  const fs::path dir = fs::path(QUILLARA_TEST_TMP) / "camera_convention";
  fs::remove_all(dir);
  scene::SceneOptions options = e2e::scene_options(dir.string(), 3, 96, 80);
  options.principal_offset_x = 3.5;  // an off-centre principal point shows mirroring mistakes
  options.principal_offset_y = -2.0;
  const scene::Scene truth = scene::make_default_scene();
  const std::vector<std::string> files = e2e::generate_scene(options).view_files;
  std::vector<Camera> cameras;
  std::vector<Camera*> camera_ptrs;
  std::vector<CMatrix<float>> depthmaps;
  testing::internal::CaptureStdout();
  read_views(files, cameras, camera_ptrs, depthmaps);
  testing::internal::GetCapturedStdout();

  for (int v = 0; v < options.views; ++v) {
    std::vector<Particle> particles;
    std::vector<float> offsets;
    std::vector<float3> normals;
    const CMatrix<float3> facing(depthmaps[v].xSize, depthmaps[v].ySize, float3{0.0f, 0.0f, 1.0f});
    create_particles_from_depthmap(particles, offsets, normals, depthmaps[v], facing, depthmaps[v],
                                   cameras[v].image, cameras[v], 0.0f, 1e30f);
    ASSERT_GT(particles.size(), 1000u) << "view " << v;
    for (const Particle& p : particles) {
      // Half a millimetre in depth is at most about 0.6 mm along the steepest ray of this view.
      ASSERT_LT(scene::distance_to_surface(truth, p.pos), 0.0007) << "view " << v << " pixel " << p.pixel_index;
      const float3 to_center = {cameras[v].center[0] - p.pos.x, cameras[v].center[1] - p.pos.y,
                                cameras[v].center[2] - p.pos.z};
      const float along = (to_center.x * p.dir.x + to_center.y * p.dir.y + to_center.z * p.dir.z);
      EXPECT_NEAR(along * along, to_center.x * to_center.x + to_center.y * to_center.y + to_center.z * to_center.z,
                  1e-4f);
    }
  }
}
