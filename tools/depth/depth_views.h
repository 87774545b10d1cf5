#pragma once

#include <stdexcept>
#include <string>

#include "formats/view_file.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"

namespace depth_tool {

// A problem with the user's input or output files: one line, "FILE: cause" or "view file "NAME":
// cause", printed as it stands.
struct DepthError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

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

// Writes depth (0 = none) as a depth PNG. Throws DepthError.
void write_depth_map(const std::string& path, const CMatrix<float>& depth);

}  // namespace depth_tool
