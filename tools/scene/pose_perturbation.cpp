#include "tools/scene/pose_perturbation.h"

#include <cmath>
#include <numbers>

#include "tools/scene/texture.h"

namespace scene {
namespace {

double as_float(double v) { return static_cast<double>(static_cast<float>(v)); }
Vec3 as_float(Vec3 v) { return {as_float(v.x), as_float(v.y), as_float(v.z)}; }

// A unit vector uniform on the sphere, from two hashes of the key.
Vec3 unit_direction(uint64_t key) {
  const double u = static_cast<double>(hash64(key) >> 11) * (1.0 / 9007199254740992.0);
  const double v = static_cast<double>(hash64(key + 1) >> 11) * (1.0 / 9007199254740992.0);
  const double z = 2.0 * u - 1.0, phi = 2.0 * std::numbers::pi * v, r = std::sqrt(1.0 - z * z);
  return {r * std::cos(phi), r * std::sin(phi), z};
}

// Rotation of v by angle about the unit axis k (Rodrigues).
Vec3 rotate(Vec3 v, Vec3 k, double angle) {
  return std::cos(angle) * v + std::sin(angle) * cross(k, v) + (dot(k, v) * (1.0 - std::cos(angle))) * k;
}

// The camera with orientation R (row by row) and centre c, its numbers rounded to float.
SceneCamera with_pose(const SceneCamera& camera, const Mat3& R, Vec3 center) {
  SceneCamera moved = camera;
  moved.R = from_rows(as_float(Vec3{R.m[0], R.m[1], R.m[2]}), as_float(Vec3{R.m[3], R.m[4], R.m[5]}),
                      as_float(Vec3{R.m[6], R.m[7], R.m[8]}));
  moved.t = as_float(-(moved.R * center));
  moved.center = -transpose_times(moved.R, moved.t);
  return moved;
}

}  // namespace

SceneCamera perturb_pose(const SceneCamera& camera, const Scene& scene, const PosePerturbation& perturbation,
                         uint64_t seed, int view) {
  const uint64_t key = hash64(seed ^ 0x706f7365ULL) ^ (static_cast<uint64_t>(view) << 32);
  const Vec3 axis = unit_direction(4 * key), shift = unit_direction(4 * key + 2);
  const double angle = perturbation.degrees * std::numbers::pi / 180.0;
  const double footprint = camera_depth(camera, scene.look_at) / camera.fx;

  // Q R, column by column: the camera frame turned about the axis.
  const Mat3& R = camera.R;
  const Vec3 c0 = rotate({R.m[0], R.m[3], R.m[6]}, axis, angle);
  const Vec3 c1 = rotate({R.m[1], R.m[4], R.m[7]}, axis, angle);
  const Vec3 c2 = rotate({R.m[2], R.m[5], R.m[8]}, axis, angle);
  const Mat3 turned = from_columns(c0, c1, c2);
  return with_pose(camera, turned, camera.center + (perturbation.footprints * footprint) * shift);
}

SceneCamera move_with_rig(const SceneCamera& camera, const Scene& scene, const PosePerturbation& rig,
                          double footprint, uint64_t seed) {
  const uint64_t key = hash64(seed ^ 0x726967ULL);
  const Vec3 axis = unit_direction(4 * key), shift = unit_direction(4 * key + 2);
  const double angle = rig.degrees * std::numbers::pi / 180.0;
  // R Q^T row by row: each row of R (a world direction) turned by Q.
  const Mat3& R = camera.R;
  const Vec3 r0 = rotate({R.m[0], R.m[1], R.m[2]}, axis, angle);
  const Vec3 r1 = rotate({R.m[3], R.m[4], R.m[5]}, axis, angle);
  const Vec3 r2 = rotate({R.m[6], R.m[7], R.m[8]}, axis, angle);
  const Vec3 center = scene.look_at + rotate(camera.center - scene.look_at, axis, angle) + (rig.footprints * footprint) * shift;
  return with_pose(camera, from_rows(r0, r1, r2), center);
}

}  // namespace scene
