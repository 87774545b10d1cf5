#pragma once

// Shared pieces of the pose suites and benchmarks: a generated scene whose view files carry known
// pose errors, read as the program reads it, and the model of its true depth maps. Pose errors are
// measured with turn_degrees and centre_distance.

#include <filesystem>
#include <string>
#include <vector>

#include "src/app/scene_input.h"
#include "src/core/camera.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/pose/rig_motion.h"
#include "tests/support/particle_cloud.h"
#include "tools/scene/ray_cast.h"
#include "tools/scene/scene_files.h"

namespace pose_test {

// A small ring of views written with pose errors: each view file's pose is turned by `degrees` and
// its centre moved by `footprints` pixel footprints; true_view_NN.txt hold the poses the images
// and depth maps were made with.
struct PoseScene {
  scene::SceneOptions options;
  std::vector<Camera> written, truth;  // as read from view_NN.txt and true_view_NN.txt
  std::vector<CMatrix<float>> depth;   // the depth maps (true, millimetre steps)
};

inline PoseScene make_pose_scene(std::string const& dir, int views, int width, int height, double degrees,
                                 double footprints) {
  PoseScene s;
  s.options.out_dir = dir;
  s.options.views = views;
  s.options.width = width;
  s.options.height = height;
  s.options.perturbation = {degrees, footprints};
  scene::write_scene(scene::make_default_scene(), s.options);
  s.written.resize(views);
  s.truth.resize(views);
  s.depth.resize(views);
  CMatrix<float> same_depth;
  for (int i = 0; i < views; ++i) {
    read_view(s.options.out_dir + "/" + scene::view_file_name(i), i, s.written[i], s.depth[i]);
    read_view(s.options.out_dir + "/" + scene::true_view_file_name(i), i, s.truth[i], same_depth);
  }
  return s;
}

// One particle per depth pixel of the given views at their true poses, with the analytic normal of
// the surface: the model a perfect fusion would give. With a stride above 1, only the pixels whose
// x and y are multiples of it make particles: a sparser model, quicker to render.
inline cloud::ParticleSet true_model(PoseScene const& s, std::vector<int> const& views, int stride = 1) {
  const scene::Scene world = scene::make_default_scene();
  const std::vector<scene::SceneCamera> cameras = scene::make_cameras(world, scene::camera_ring(s.options));
  cloud::ParticleSet m;
  for (int i : views) {
    CMatrix<float> depth = s.depth[i];
    for (int y = 0; y < depth.ySize; ++y)
      for (int x = 0; x < depth.xSize; ++x)
        if (x % stride != 0 || y % stride != 0) depth(x, y) = 0.0f;
    CMatrix<float3> normals(depth.xSize, depth.ySize);
    for (int y = 0; y < depth.ySize; ++y)
      for (int x = 0; x < depth.xSize; ++x) {
        const scene::Vec3 n = scene::cast_ray(world, cameras[i].center, scene::pixel_direction(cameras[i], x, y)).normal;
        normals(x, y) = make_float3(static_cast<float>(n.x), static_cast<float>(n.y), static_cast<float>(n.z));
      }
    create_particles_from_depthmap(m.particles, m.offsets, m.normals, depth, normals, depth, s.truth[i].image,
                                   s.truth[i], 0.0f, 1e30f);
  }
  return m;
}

}  // namespace pose_test
