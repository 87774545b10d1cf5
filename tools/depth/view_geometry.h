#pragma once

#include "src/core/camera.h"

namespace depth_tool {

struct Point3 {
  double x = 0, y = 0, z = 0;
};

// A view's camera for the host-side steps, in double: array pixel (x, y) at depth z is the camera
// point ((cx - x) z / fx, (cy - y) z / fy, z), cx and cy as the view file has them (not mirrored),
// and world = R^T (camera point - t), R row by row.
struct ViewGeometry {
  int width = 0, height = 0;
  double fx = 0, fy = 0, cx = 0, cy = 0;
  double R[9] = {};
  double t[3] = {};
};

ViewGeometry view_geometry(const Camera& camera);

// The world point of array pixel (x, y) at depth z.
Point3 back_project(const ViewGeometry& view, double x, double y, double z);

// The array position (x, y) and depth z of a world point; false when it lies behind the camera.
bool project(const ViewGeometry& view, Point3 p, double& x, double& y, double& z);

}  // namespace depth_tool
