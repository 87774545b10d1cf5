#pragma once

#include <string>

#include "formats/view_file.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"

namespace depth_tool {

// One input view: the view file as read, the camera as the program makes it (intrinsics scaled
// to the colour image, principal point mirrored, image loaded), and the depth range of its input
// depth map when that was read.
struct DepthView {
  std::string file;
  ViewFile view;
  Camera camera;
  bool has_depth_range = false;
  float depth_min = 0.0f, depth_max = 0.0f;  // smallest and largest non-zero input depth
};

// Reads a view file and its colour image; with read_depth also its depth map, when the file
// exists (it may not yet). Throws ViewFileError naming the view file and the cause.
DepthView read_depth_view(const std::string& file, int index, bool read_depth);

// Writes depth (0 = none) as a depth PNG. Throws FileError.
void write_depth_map(const std::string& path, const CMatrix<float>& depth);

}  // namespace depth_tool
