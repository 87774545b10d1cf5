#include "tools/depth/view_geometry.h"

namespace depth_tool {

ViewGeometry view_geometry(const Camera& c) {
  ViewGeometry v;
  v.width = c.width, v.height = c.height;
  v.fx = c.K[0], v.fy = c.K[4];
  // The camera holds the principal point mirrored.
  v.cx = static_cast<double>(c.width - 1) - c.K[6], v.cy = static_cast<double>(c.height - 1) - c.K[7];
  for (int r = 0; r < 3; ++r) {
    for (int k = 0; k < 3; ++k) v.R[3 * r + k] = c.R[3 * k + r];  // the camera's R is held by columns
    v.t[r] = c.t[r];
  }
  return v;
}

Point3 back_project(const ViewGeometry& v, double x, double y, double z) {
  const double p[3] = {(v.cx - x) * z / v.fx - v.t[0], (v.cy - y) * z / v.fy - v.t[1], z - v.t[2]};
  const double* R = v.R;
  return {R[0] * p[0] + R[3] * p[1] + R[6] * p[2], R[1] * p[0] + R[4] * p[1] + R[7] * p[2],
          R[2] * p[0] + R[5] * p[1] + R[8] * p[2]};
}

bool project(const ViewGeometry& v, Point3 p, double& x, double& y, double& z) {
  const double* R = v.R;
  const double X = R[0] * p.x + R[1] * p.y + R[2] * p.z + v.t[0];
  const double Y = R[3] * p.x + R[4] * p.y + R[5] * p.z + v.t[1];
  z = R[6] * p.x + R[7] * p.y + R[8] * p.z + v.t[2];
  if (!(z > 0)) return false;
  x = v.cx - v.fx * X / z;
  y = v.cy - v.fy * Y / z;
  return true;
}

}  // namespace depth_tool
