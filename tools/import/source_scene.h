#pragma once

#include <string>
#include <vector>

#include "tools/import/pose.h"

// What an importer finds in another tool's layout: views with a pinhole camera, a pose and the
// paths of their colour image and depth map, before anything is converted.
namespace importer {

// Pinhole intrinsics with pixel centres at whole numbers: column x of the array sees the camera
// ray through ((x - cx) / fx, (y - cy) / fy, 1).
struct Intrinsics {
  double fx = 0, fy = 0, cx = 0, cy = 0;
};

// The intrinsics used when tum and log sequences come without --intrinsics: those of 640 x 480
// images, so they are refused for images of any other size.
inline constexpr Intrinsics kDefaultIntrinsics{525, 525, 319.5, 239.5};
inline constexpr int kDefaultIntrinsicsWidth = 640, kDefaultIntrinsicsHeight = 480;

enum class DepthFormat {
  png16,       // 8 or 16-bit grey PNG in units of 1 / depth_scale, 0 = none
  float_array  // text header "width&height&channels&", then float32 lengths row by row, <= 0 = none
};

struct SourceView {
  std::string name;  // shown in progress lines
  Intrinsics intrinsics;
  Pose pose;
  int width = 0, height = 0;  // the camera's size when the source states one, else 0
  std::string colour_path, depth_path;
};

struct SourceScene {
  std::string description;  // e.g. "colmap workspace /data/ws (binary sparse model)"
  DepthFormat depth_format = DepthFormat::png16;
  double depth_scale = 1000;  // depth image units per length unit, for png16
  std::vector<SourceView> views;
  std::vector<std::string> notes;  // lines for the summary, e.g. frames left out and why
  bool default_intrinsics = false;  // kDefaultIntrinsics stand in for intrinsics not given
};

}  // namespace importer
