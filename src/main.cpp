#include <optional>
#include <string>
#include <vector>

#include "image/CMatrix.h"
#include "src/camera.h"
#include "src/command_line.h"
#include "src/model_output.h"
#include "src/particles_from_depthmap.h"
#include "src/scene_input.h"
#include "src/settings.h"

int main(int argc, char* argv[]) {
  std::vector<std::string> view_files;
  if (std::optional<int> status = set_up_run(argc, argv, view_files)) return *status;

  std::vector<Camera> cameras;
  std::vector<Camera*> camera_ptrs;
  std::vector<CMatrix<float>> depthmaps;
  read_views(view_files, cameras, camera_ptrs, depthmaps, true);

  // Until the filter stages exist: every measured depth becomes a particle facing its camera.
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
  for (int i = 0; i < n_keyframes; ++i) {
    const Camera& cam = *camera_ptrs[i];
    const CMatrix<float3> no_normals(depthmaps[i].xSize, depthmaps[i].ySize);
    create_particles_from_depthmap(particles, offsets, normals, depthmaps[i], no_normals, depthmaps[i], cam.image,
                                   cam, 0.0f, depth_range_max);
  }
  for (size_t k = 0; k < particles.size(); ++k) normals[k] = particles[k].init_normal;
  writeParticlesToPLY(particles, offsets, normals, output_directory + "/model.ply");
  return 0;
}
