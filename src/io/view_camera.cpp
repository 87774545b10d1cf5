#include "src/io/view_camera.h"

Camera camera_from_view_file(const ViewFile& view, int index) {
  Camera camera;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      camera.K[3 * c + r] = static_cast<float>(view.K[3 * r + c]);
      camera.R[3 * c + r] = static_cast<float>(view.R[3 * r + c]);
    }
    camera.t[r] = static_cast<float>(view.t[r]);
  }
  const float* R = camera.R;
  const float* t = camera.t;
  for (int r = 0; r < 3; ++r) camera.center[r] = -R[3 * r] * t[0] - R[3 * r + 1] * t[1] - R[3 * r + 2] * t[2];
  camera.width = view.width;
  camera.height = view.height;
  camera.index = index;
  camera.image_coordinates = false;
  // Calibration files give the principal point of the unmirrored image.
  camera.K[6] = static_cast<float>(camera.width - 1) - camera.K[6];
  camera.K[7] = static_cast<float>(camera.height - 1) - camera.K[7];
  camera.image_filename = view.image_path;
  return camera;
}

ViewFile view_file_from_camera(const Camera& camera, const std::string& depth_path) {
  ViewFile view;
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      view.K[3 * r + c] = camera.K[3 * c + r];
      view.R[3 * r + c] = camera.R[3 * c + r];
    }
    view.t[r] = camera.t[r];
  }
  view.K[2] = static_cast<float>(camera.width - 1) - camera.K[6];
  view.K[5] = static_cast<float>(camera.height - 1) - camera.K[7];
  view.width = camera.width;
  view.height = camera.height;
  view.image_path = camera.image_filename;
  view.depth_path = depth_path;
  return view;
}
