#include "tools/scene/scene_camera.h"

#include <numbers>

namespace scene {
namespace {

double as_float(double v) { return static_cast<double>(static_cast<float>(v)); }

Vec3 as_float(Vec3 v) { return {as_float(v.x), as_float(v.y), as_float(v.z)}; }

}  // namespace

std::vector<SceneCamera> make_cameras(const Scene& scene, const CameraRing& ring) {
  std::vector<SceneCamera> cameras;
  for (int i = 0; i < ring.views; ++i) {
    const double angle = 2.0 * std::numbers::pi * i / ring.views + 0.35;
    const double height = 1.45 + 0.25 * std::sin(1.7 * i + 0.3);
    const Vec3 eye{ring.radius * std::cos(angle), ring.radius * std::sin(angle), height};
    const Vec3 forward = normalize(scene.look_at - eye);
    const Vec3 level_right = normalize(cross(forward, {0, 0, 1}));
    const Vec3 level_down = cross(forward, level_right);
    // A small roll about the optical axis, so that no entry of R or t is zero by construction.
    const double roll = 0.05 * std::sin(2.1 * i + 0.7);
    const Vec3 right = std::cos(roll) * level_right + std::sin(roll) * level_down;
    const Vec3 down = cross(forward, right);

    SceneCamera c;
    c.width = ring.width;
    c.height = ring.height;
    c.fx = c.fy = as_float(0.82 * ring.width);
    c.cx = as_float(0.5 * (ring.width - 1) + ring.principal_offset_x);
    c.cy = as_float(0.5 * (ring.height - 1) + ring.principal_offset_y);
    c.R = from_rows(as_float(right), as_float(down), as_float(forward));
    c.t = as_float(-(c.R * eye));
    c.center = -transpose_times(c.R, c.t);
    cameras.push_back(c);
  }
  return cameras;
}

Vec3 pixel_direction(const SceneCamera& c, double x, double y) {
  return transpose_times(c.R, {(x - c.cx) / c.fx, (y - c.cy) / c.fy, 1.0});
}

double camera_depth(const SceneCamera& c, Vec3 p) { return (c.R * p + c.t).z; }

ViewFile make_view_file(const SceneCamera& c, const std::string& image_path,
                        const std::string& depth_path) {
  ViewFile v;
  const double K[9] = {c.fx, 0, c.cx, 0, c.fy, c.cy, 0, 0, 1};
  const double flip[3] = {-1, -1, 1};
  for (int i = 0; i < 9; ++i) {
    v.K[i] = K[i];
    v.R[i] = flip[i / 3] * c.R.m[i];
  }
  v.t[0] = -c.t.x;
  v.t[1] = -c.t.y;
  v.t[2] = c.t.z;
  v.width = c.width;
  v.height = c.height;
  v.image_path = image_path;
  v.depth_path = depth_path;
  return v;
}

Vec3 back_project(const ViewFile& v, double x, double y, double z) {
  const double fx = v.K[0], cx = v.K[2], fy = v.K[4], cy = v.K[5];
  const Vec3 cam{(cx - x) * z / fx, (cy - y) * z / fy, z};
  const Vec3 d = cam - Vec3{v.t[0], v.t[1], v.t[2]};
  return transpose_times(Mat3{{v.R[0], v.R[1], v.R[2], v.R[3], v.R[4], v.R[5], v.R[6], v.R[7], v.R[8]}}, d);
}

}  // namespace scene
