#pragma once

#include <string>

#include "formats/view_file.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"

// Reads one view file into camera (index and the pose, intrinsics, sizes and paths) and its
// depth PNG into depthmap, then loads the colour image. Throws ViewFileError when the file is
// malformed (see parse_view_file), an image cannot be read, or the sizes disagree; the image
// readers' texts are kept as the cause. depth_path, when given, receives the depth map's path.
void read_view(const std::string& file, int index, Camera& camera, CMatrix<float>& depthmap,
               std::string* depth_path = nullptr);
