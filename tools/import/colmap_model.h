#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/import/pose.h"

// The sparse model of a multi-view-stereo workspace, text or little-endian binary: the cameras
// and the registered images with their world-to-camera poses. 3-D points are not needed.
namespace importer {

struct ColmapCamera {
  uint32_t id = 0;
  std::string model;  // "PINHOLE" or "SIMPLE_PINHOLE"; other models are refused while reading
  int width = 0, height = 0;
  std::vector<double> params;  // fx fy cx cy, or f cx cy
};

struct ColmapImage {
  uint32_t id = 0;
  Quaternion rotation;  // world-to-camera
  Vec3 translation;
  uint32_t camera_id = 0;
  std::string name;  // path below the workspace's images/ folder
};

std::vector<ColmapCamera> read_colmap_cameras_text(const std::string& path);
std::vector<ColmapCamera> read_colmap_cameras_binary(const std::string& path);
std::vector<ColmapImage> read_colmap_images_text(const std::string& path);
std::vector<ColmapImage> read_colmap_images_binary(const std::string& path);

}  // namespace importer
