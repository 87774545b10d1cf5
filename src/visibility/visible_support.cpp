#include "src/visibility/visible_support.h"

#include <cfloat>
#include <cmath>

#include "device/vector_math.h"
#include "src/core/particle_position.h"
#include "src/render/depth_from_points.h"
#include "src/render/points.h"
#include "src/render/render_buffer.h"
#include "src/render/render_points.h"

namespace {

constexpr float kDiscScale = 2.0f;

// True when p lands on a pixel of the camera's image; the mirrored pixel convention maps the
// image onto itself, so the test needs no mirroring.
bool inside_image(const Camera& camera, float3 p) {
  // R is stored by columns: row r is (R[r], R[3 + r], R[6 + r]).
  const float* R = camera.R;
  const float z = R[2] * p.x + R[5] * p.y + R[8] * p.z + camera.t[2];
  if (!(z > 0.0f)) return false;
  const float u = (R[0] * p.x + R[3] * p.y + R[6] * p.z + camera.t[0]) * camera.K[0] / z + camera.K[6];
  const float v = (R[1] * p.x + R[4] * p.y + R[7] * p.z + camera.t[1]) * camera.K[4] / z + camera.K[7];
  return u >= -0.5f && u < static_cast<float>(camera.width) - 0.5f && v >= -0.5f &&
         v < static_cast<float>(camera.height) - 0.5f;
}

}  // namespace

void add_visible_view(VisibleViews& visible, const std::vector<int>& flags, const std::vector<Particle>& particles,
                      const std::vector<float>& offsets, const std::vector<float3>& normals, const Camera& camera,
                      float per_view, float cos_limit) {
  const float3 centre = {camera.center[0], camera.center[1], camera.center[2]};
  const long long n = static_cast<long long>(particles.size());
#pragma omp parallel for schedule(static)
  for (long long i = 0; i < n; ++i) {
    if (flags[i] == 0 || particles[i].camera_index == camera.index) continue;
    const float3 position = particle_position(particles[i], offsets[i]);
    if (!inside_image(camera, position)) continue;
    const float3 towards = centre - position;
    const float distance = length(towards);
    if (!(distance > 0.0f)) continue;
    const float cosine = dot(normals[i], towards) / distance;
    if (!(cosine >= cos_limit)) continue;  // too oblique, or NaN
    visible.expected[i] += per_view * cosine;
    ++visible.views[i];
  }
}

VisibleViews find_visible_views(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                                const std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                                float per_view, float cos_limit) {
  VisibleViews visible;
  visible.expected.assign(particles.size(), 0.0f);
  visible.views.assign(particles.size(), 0);
  if (particles.empty()) return visible;  // nothing to upload
  Points points = createPoints(particles, offsets, normals);
  // Discs at twice their radius: a disc of one pixel's footprint seen obliquely from another view
  // can fall between that view's pixel centres and would read as hidden. The depth tolerance of
  // the test stays the disc's own radius.
  for (const Camera* camera : cameras) {
    RenderBuffer rb = createRenderBuffer(camera->width, camera->height);
    const std::vector<int> flags =
        contributing_points(rb, points, *camera, rendering_depth_tolerance, 0.0f, FLT_MAX, kDiscScale);
    freeRenderBuffer(rb);
    add_visible_view(visible, flags, particles, offsets, normals, *camera, per_view, cos_limit);
  }
  freePoints(points);
  return visible;
}
