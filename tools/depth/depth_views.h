#pragma once

#include <stdexcept>
#include <string>

#include "image/CMatrix.h"
#include "src/app/view_file.h"
#include "src/core/camera.h"

namespace depth_tool {

// A problem with the user's input or output files: one line, "FILE: cause" or "view file "NAME":
// cause", printed as it stands.
struct DepthError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// One input view: the view file's text and tokens, the camera as the program reads it (intrinsics
// scaled to the colour image, principal point mirrored, image loaded), and the depth range of its
// input depth map when that was read.
struct DepthView {
  std::string file;
  std::string text;
  ViewFileTokens tokens;
  Camera camera;
  bool has_depth_range = false;
  float depth_min = 0.0f, depth_max = 0.0f;  // smallest and largest non-zero input depth
};

// Reads a view file and its colour image; with read_depth also its depth map, when the file
// exists (it may not yet). Throws DepthError naming the view file and the cause.
DepthView read_depth_view(const std::string& file, int index, bool read_depth);

// The view file's text with its depth path (token 25) replaced; everything else as it stands.
std::string with_depth_path(const DepthView& view, const std::string& depth_path);

// Writes depth (0 = none) as a 16-bit PNG in thousandths of the length unit. Throws DepthError.
void write_depth_png(const std::string& path, const CMatrix<float>& depth);

// Writes text to path; throws DepthError naming the file.
void write_text_file(const std::string& path, const std::string& text);

}  // namespace depth_tool
