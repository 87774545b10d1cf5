#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tools/scene/appearance.h"
#include "tools/scene/pose_perturbation.h"
#include "tools/scene/scene.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_kinds.h"
#include "tools/scene/scene_layouts.h"
#include "tools/scene/street.h"

namespace scene {

struct SceneOptions {
  std::string out_dir;
  int views = 8;
  int width = 640;
  int height = 480;
  double noise = 0.0;  // depth noise standard deviation at depth 1; it grows with depth squared
  uint64_t seed = 1;   // drives the depth noise and the pose error; geometry, true cameras and colours are fixed
  double principal_offset_x = 0.0;  // principal point shift from the image centre, in pixels
  double principal_offset_y = 0.0;
  int ground_truth_stride = 4;  // ground truth from pixels whose x and y are multiples of this
  Layout layout = Layout::none;  // another tool's layout written beside the view files
  // Moves the poses written into the view files (and layouts) away from the rendered ones; the
  // true poses then go to true_view_NN.txt.
  PosePerturbation perturbation;
  // Moves all written poses by one rigid motion of the world (after the perturbation): a rig that
  // stands elsewhere as a whole, its cameras as true to each other as the perturbation left them.
  PosePerturbation rig_error;
  // Writes the true poses to true_view_NN.txt even when no pose error moved them (--pose-error 0,0):
  // a test bed for alignment that must leave exact poses as they are.
  bool write_true_poses = false;
  double outliers = 0.0;  // share of each view's surface pixels given a wrong depth (see plant_outliers)
  Arrangement arrangement = Arrangement::ring;  // cameras on a ring round the sample scene, or along a street
  SceneKind kind = SceneKind::standard;  // named in scene_kind.txt unless standard
  Appearance appearance = Appearance::standard;  // how the colour images look
};

struct SurfaceSample {
  Vec3 point;
  Vec3 normal;  // analytic, facing the camera that saw the point
};

struct SceneSummary {
  std::string out_dir;  // absolute
  int views = 0, width = 0, height = 0;
  uint64_t surface_pixels = 0;
  double average_depth = 0;  // mean true depth over all surface pixels of all views
  uint64_t ground_truth_points = 0;
  uint64_t outlier_pixels = 0;  // planted wrong depths, all views
};

CameraRing camera_ring(const SceneOptions& options);

// The scene and the cameras the options ask for: the sample scene seen from a ring, or the street.
Scene make_scene(const SceneOptions& options);
std::vector<SceneCamera> make_scene_cameras(const Scene& scene, const SceneOptions& options);

// "view_00.txt", "image_00.png", "depth_00.png" for view 0, and so on.
std::string view_file_name(int view);
std::string image_file_name(int view);
std::string depth_file_name(int view);
std::string true_view_file_name(int view);  // "true_view_00.txt"

// Exact ray hits through every stride-th pixel in x and y of every camera, views in order.
// Depths beyond max_depth are not seen (the street's sensor range).
std::vector<SurfaceSample> ground_truth_samples(const Scene& scene, const std::vector<SceneCamera>& cameras,
                                                int stride,
                                                double max_depth = std::numeric_limits<double>::infinity());

// Binary little-endian PLY with float x y z nx ny nz per vertex.
void write_ground_truth_ply(const std::string& path, const std::vector<SurfaceSample>& samples);

// Renders every view and writes all files of the scene into options.out_dir, creating it when
// missing; with planted outliers also outliers.ply, their back-projected points. Throws std::runtime_error with a readable text on any failure.
SceneSummary write_scene(const Scene& scene, const SceneOptions& options);

// The few lines printed after a successful run.
std::string format_summary(const SceneSummary& summary, const SceneOptions& options);

}  // namespace scene
