#pragma once

#include <string>

#include "formats/view_file.h"
#include "src/core/camera.h"

// The camera the program makes of a view file, and the view file of a camera. The camera holds K
// and R by columns (element (r, c) at 3 * c + r) and the principal point mirrored, cx' = W - 1 - cx
// and cy' = H - 1 - cy, as all projection works on the mirrored image plane; its centre is -R^T t.

// Everything but the image, which Camera::loadImage reads from image_filename.
Camera camera_from_view_file(const ViewFile& view, int index);

// The view file that reads back as the camera, bit for bit, naming depth_path as its depth map.
ViewFile view_file_from_camera(const Camera& camera, const std::string& depth_path);
