#include "src/visibility/backface_visibility_test.h"

#include <cfloat>
#include <cmath>

#include "device/vector_math.h"
#include "image/CMatrix.h"
#include "src/core/particle_position.h"
#include "src/render/depth_from_points.h"
#include "src/render/render_points.h"
#include "src/render/points.h"

namespace {

// Adds 1 to counts[i] for each particle that faces away from `camera` and lies in front of the
// rendered surface by more than `tolerance` everywhere in the 3 x 3 pixels around its own.
void count_backfaces(std::vector<int>& counts, const std::vector<Particle>& particles,
                     const std::vector<float>& offsets, const std::vector<float3>& normals,
                     const Camera& camera, const CMatrix<float>& depth, float tolerance) {
  // R is stored by columns: row r is (R[r], R[3 + r], R[6 + r]).
  const float* R = camera.R;
  const float3 row1 = {R[0], R[3], R[6]}, row2 = {R[1], R[4], R[7]}, z_axis = {R[2], R[5], R[8]};
  const float fx = camera.K[0], fy = camera.K[4], cx = camera.K[6], cy = camera.K[7];
  const int W = camera.width, H = camera.height;
  const long long n = static_cast<long long>(particles.size());
#pragma omp parallel for schedule(static)
  for (long long i = 0; i < n; ++i) {
    if (dot(normals[i], z_axis) <= 0.0f) continue;  // faces the camera
    const float3 p = particle_position(particles[i], offsets[i]);
    const float z = dot(z_axis, p) + camera.t[2];
    if (z <= 0.0f) continue;  // behind the camera
    // Mirrored pixel convention; the range test on the floats also turns away NaN.
    const float xf = std::floor(static_cast<float>(W - 1) + 0.5f - ((dot(row1, p) + camera.t[0]) * fx / z + cx));
    const float yf = std::floor(static_cast<float>(H - 1) + 0.5f - ((dot(row2, p) + camera.t[1]) * fy / z + cy));
    if (!(xf >= 1.0f && xf < static_cast<float>(W - 1) && yf >= 1.0f && yf < static_cast<float>(H - 1))) continue;
    const int x = static_cast<int>(xf), y = static_cast<int>(yf);
    float m = FLT_MAX;
    for (int dy = -1; dy <= 1; ++dy)
      for (int dx = -1; dx <= 1; ++dx) m = std::fmin(m, depth(x + dx, y + dy));
    if (m > 0.0f && m != FLT_MAX && m > z + tolerance) ++counts[i];
  }
}

}  // namespace

void backface_visibility_test(std::vector<int>& counts, const std::vector<Particle>& particles,
                              const std::vector<float>& offsets, const std::vector<float3>& normals,
                              const std::vector<Camera*>& cameras, float tolerance) {
  counts.resize(particles.size(), 0);
  if (particles.empty()) return;  // nothing to upload or to count
  Points points = createPoints(particles, offsets, normals);
  // The views share the render arrays, so they are taken one after the other.
  for (const Camera* camera : cameras) {
    CMatrix<float> depth;
    CMatrix<float3> normal_map;
    compute_depthmap_and_normals_from_points(depth, normal_map, points, *camera, rendering_depth_tolerance, 0.0f,
                                             FLT_MAX, 1.0f);
    count_backfaces(counts, particles, offsets, normals, *camera, depth, tolerance);
  }
  freePoints(points);
}
