#include "tools/import/pose.h"

#include <cmath>

namespace importer {

bool rotation_of(Quaternion q, Mat3& rotation) {
  const double n = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
  if (!(n > 1e-12)) return false;
  const double w = q.w / n, x = q.x / n, y = q.y / n, z = q.z / n;
  rotation = {{1 - 2 * (y * y + z * z), 2 * (x * y - w * z), 2 * (x * z + w * y),  //
               2 * (x * y + w * z), 1 - 2 * (x * x + z * z), 2 * (y * z - w * x),  //
               2 * (x * z - w * y), 2 * (y * z + w * x), 1 - 2 * (x * x + y * y)}};
  return true;
}

bool is_rotation(const Mat3& m, double tolerance) {
  const Vec3 r0{m.m[0], m.m[1], m.m[2]}, r1{m.m[3], m.m[4], m.m[5]}, r2{m.m[6], m.m[7], m.m[8]};
  const double errors[] = {dot(r0, r0) - 1, dot(r1, r1) - 1, dot(r2, r2) - 1,           dot(r0, r1),
                           dot(r0, r2),     dot(r1, r2),     dot(cross(r0, r1), r2) - 1};
  for (double e : errors)
    if (!(std::abs(e) <= tolerance)) return false;
  return true;
}

Pose pose_from_camera_to_world(const Mat3& rotation, Vec3 centre) {
  const double* r = rotation.m;
  Pose p;
  p.R = {{r[0], r[3], r[6], r[1], r[4], r[7], r[2], r[5], r[8]}};
  p.t = -(p.R * centre);
  return p;
}

Quaternion slerp(Quaternion a, Quaternion b, double u) {
  double d = a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z;
  if (d < 0) {
    b = {-b.w, -b.x, -b.y, -b.z};
    d = -d;
  }
  double wa = 1 - u, wb = u;
  if (d < 0.9995) {  // otherwise the two are so close that a straight blend is exact enough
    const double angle = std::acos(d);
    wa = std::sin((1 - u) * angle) / std::sin(angle);
    wb = std::sin(u * angle) / std::sin(angle);
  }
  return {wa * a.w + wb * b.w, wa * a.x + wb * b.x, wa * a.y + wb * b.y, wa * a.z + wb * b.z};
}

}  // namespace importer
