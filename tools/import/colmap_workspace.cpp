#include "tools/import/colmap_workspace.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>

#include "tools/import/colmap_model.h"
#include "tools/import/import_error.h"

namespace importer {
namespace {

namespace fs = std::filesystem;

bool all_exist(std::initializer_list<std::string> paths) {
  for (const std::string& p : paths)
    if (!fs::is_regular_file(p)) return false;
  return true;
}

bool finite(Vec3 v) { return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z); }

// The principal point as written: the dense depth maps are made and fused with depth pixel
// (col, row) on the ray through ((col - cx) / fx, (row - cy) / fy), pixel centres at whole numbers,
// whatever centre convention the sparse model's keypoints use.
Intrinsics intrinsics_of(const ColmapCamera& c) {
  const std::vector<double>& p = c.params;
  if (c.model == "PINHOLE") return {p[0], p[1], p[2], p[3]};
  return {p[0], p[0], p[1], p[2]};
}

void check_camera(const std::string& path, const ColmapCamera& c) {
  const Intrinsics k = intrinsics_of(c);
  const std::string id = "camera " + std::to_string(c.id);
  if (!(std::isfinite(k.fx) && std::isfinite(k.fy) && std::isfinite(k.cx) && std::isfinite(k.cy)))
    fail(path, id + " has parameters that are not finite");
  if (!(k.fx > 0 && k.fy > 0)) fail(path, id + " has a focal length that is not positive");
}

}  // namespace

SourceScene read_colmap_workspace(const std::string& workspace, DepthChoice choice) {
  const std::string sparse = workspace + "/sparse";
  SourceScene scene;
  scene.depth_format = DepthFormat::float_array;
  std::vector<ColmapCamera> cameras;
  std::vector<ColmapImage> images;
  std::string cameras_path, images_path;
  if (all_exist({sparse + "/cameras.bin", sparse + "/images.bin"})) {
    cameras_path = sparse + "/cameras.bin";
    images_path = sparse + "/images.bin";
    cameras = read_colmap_cameras_binary(cameras_path);
    images = read_colmap_images_binary(images_path);
    scene.description = "workspace " + workspace + " (binary sparse model)";
  } else if (all_exist({sparse + "/cameras.txt", sparse + "/images.txt"})) {
    cameras_path = sparse + "/cameras.txt";
    images_path = sparse + "/images.txt";
    cameras = read_colmap_cameras_text(cameras_path);
    images = read_colmap_images_text(images_path);
    scene.description = "workspace " + workspace + " (text sparse model)";
  } else {
    fail(sparse, "no sparse model (cameras.bin and images.bin, or cameras.txt and images.txt)");
  }

  std::map<uint32_t, ColmapCamera> by_id;
  for (const ColmapCamera& c : cameras) {
    check_camera(cameras_path, c);
    if (!by_id.emplace(c.id, c).second) fail(cameras_path, "camera " + std::to_string(c.id) + " appears twice");
  }
  std::sort(images.begin(), images.end(), [](const ColmapImage& a, const ColmapImage& b) { return a.name < b.name; });

  int geometric = 0, photometric = 0;
  std::vector<std::string> without_depth;
  for (const ColmapImage& image : images) {
    const std::string id = "image " + std::to_string(image.id);
    const auto camera = by_id.find(image.camera_id);
    if (camera == by_id.end())
      fail(images_path,
           id + " refers to camera " + std::to_string(image.camera_id) + ", which " + cameras_path + " does not hold");
    SourceView view;
    if (!rotation_of(image.rotation, view.pose.R)) fail(images_path, id + " has a zero rotation quaternion");
    if (!finite(image.translation)) fail(images_path, id + " has a translation that is not finite");
    view.pose.t = image.translation;
    view.intrinsics = intrinsics_of(camera->second);
    view.width = camera->second.width;
    view.height = camera->second.height;
    view.name = image.name;
    view.colour_path = workspace + "/images/" + image.name;
    const std::string maps = workspace + "/stereo/depth_maps/" + image.name;
    if (choice != DepthChoice::photometric && fs::is_regular_file(maps + ".geometric.bin")) {
      view.depth_path = maps + ".geometric.bin";
      ++geometric;
    } else if (choice != DepthChoice::geometric && fs::is_regular_file(maps + ".photometric.bin")) {
      view.depth_path = maps + ".photometric.bin";
      ++photometric;
    } else {
      without_depth.push_back(image.name);
      continue;
    }
    scene.views.push_back(view);
  }
  if (!fs::is_directory(workspace + "/stereo/depth_maps"))
    scene.notes.push_back("no folder " + workspace + "/stereo/depth_maps (run the dense stereo step first)");
  if (images.empty()) scene.notes.push_back(images_path + " registers no image");
  scene.notes.push_back("depth maps: " + std::to_string(geometric) + " geometric, " + std::to_string(photometric) +
                        " photometric");
  if (!without_depth.empty())
    scene.notes.push_back(std::to_string(without_depth.size()) + " registered images without a " +
                          (choice == DepthChoice::geometric     ? "geometric "
                           : choice == DepthChoice::photometric ? "photometric "
                                                                : "") +
                          "depth map left out, the first " + without_depth.front());
  return scene;
}

}  // namespace importer
