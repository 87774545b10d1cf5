#pragma once

#include <string>
#include <vector>

#include "formats/view_file.h"
#include "tools/scene/scene.h"

namespace scene {

// One generated view in the usual pinhole frame (x right, y down, z forward): a world point p
// has camera point c = R p + t and lands on array pixel column x = fx c.x / c.z + cx, row
// y = fy c.y / c.z + cy, with pixel centres at whole numbers. All numbers are exact 32-bit floats,
// so the view file (read as float) describes exactly the camera that was rendered.
struct SceneCamera {
  int width = 0, height = 0;
  double fx = 0, fy = 0, cx = 0, cy = 0;
  Mat3 R;
  Vec3 t;
  Vec3 center;  // -R^T t
};

struct CameraRing {
  int views = 8;
  int width = 640;
  int height = 480;
  double radius = 3.0;              // of the circle the cameras stand on
  double principal_offset_x = 0.0;  // principal point shift from the image centre, in pixels
  double principal_offset_y = 0.0;
};

// Cameras on a circle about the world z axis, heights and roll varying a little, all looking at
// scene.look_at.
std::vector<SceneCamera> make_cameras(const Scene& scene, const CameraRing& ring);

// World direction of the ray through array pixel (x, y); its camera-frame z component is 1, so
// origin + d * direction has depth d.
Vec3 pixel_direction(const SceneCamera& camera, double x, double y);

// Camera-frame z of a world point (the depth stored in depth maps, not the ray length).
double camera_depth(const SceneCamera& camera, Vec3 world_point);

// The view file of the camera. Its frame is the pinhole frame above turned 180 degrees about the
// optical axis: R_file = F R, t_file = F t with F = diag(-1, -1, 1), and the same K.
ViewFile make_view_file(const SceneCamera& camera, const std::string& image_path,
                        const std::string& depth_path);

// How quillara turns array pixel (x, y) with depth z into a world point:
// camera point ((cx - x) z / fx, (cy - y) z / fy, z), world = R^T (camera point - t).
Vec3 back_project(const ViewFile& view, double x, double y, double z);

}  // namespace scene
