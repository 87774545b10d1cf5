#pragma once

// Shared pieces of the pose suites and benchmark: a generated scene whose view files carry known
// pose errors, read as the program reads it, the model of its true depth maps, and pose error
// measures.

#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "src/app/scene_input.h"
#include "src/core/camera.h"
#include "src/particles/particles_from_depthmap.h"
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

struct Model {
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
};

// One particle per depth pixel of the given views at their true poses, with the analytic normal of
// the surface: the model a perfect fusion would give.
inline Model true_model(PoseScene const& s, std::vector<int> const& views) {
  const scene::Scene world = scene::make_default_scene();
  const std::vector<scene::SceneCamera> cameras = scene::make_cameras(world, scene::camera_ring(s.options));
  Model m;
  for (int i : views) {
    const CMatrix<float>& depth = s.depth[i];
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

// Angle in degrees of the rotation M = Ra Rb^T between the poses of a and b, from both its
// symmetric and its skew part, so that small angles keep their digits.
inline double rotation_error_degrees(Camera const& a, Camera const& b) {
  double M[3][3] = {};  // R stored by columns: element (r, c) at [3 * c + r]
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      for (int k = 0; k < 3; ++k) M[r][c] += static_cast<double>(a.R[3 * k + r]) * b.R[3 * k + c];
  const double trace = M[0][0] + M[1][1] + M[2][2];
  const double sx = M[2][1] - M[1][2], sy = M[0][2] - M[2][0], sz = M[1][0] - M[0][1];
  return std::atan2(std::sqrt(sx * sx + sy * sy + sz * sz), trace - 1.0) * 180.0 / M_PI;
}

// Distance between the camera centres of a and b, in world units.
inline double centre_error(Camera const& a, Camera const& b) {
  double sum = 0;
  for (int i = 0; i < 3; ++i) {
    const double d = static_cast<double>(a.center[i]) - b.center[i];
    sum += d * d;
  }
  return std::sqrt(sum);
}

}  // namespace pose_test
