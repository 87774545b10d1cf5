#include "src/visibility/view_agreement.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "device/vector_math.h"
#include "src/core/particle_position.h"

namespace {

enum class Verdict { silent, agrees, contradicts };

struct ViewPoint {
  float x, y;   // array pixel coordinates, mirrored as the views' images are
  float depth;  // camera-frame z
};

// R is stored by columns: row r is (R[r], R[3 + r], R[6 + r]).
ViewPoint project(const Camera& camera, float3 p) {
  const float* R = camera.R;
  const float cx = R[0] * p.x + R[3] * p.y + R[6] * p.z + camera.t[0];
  const float cy = R[1] * p.x + R[4] * p.y + R[7] * p.z + camera.t[1];
  const float cz = R[2] * p.x + R[5] * p.y + R[8] * p.z + camera.t[2];
  const float u = cx * camera.K[0] / cz + camera.K[6], v = cy * camera.K[4] / cz + camera.K[7];
  return {static_cast<float>(camera.width - 1) - u, static_cast<float>(camera.height - 1) - v, cz};
}

float camera_depth(const Camera& camera, float3 p) {
  const float* R = camera.R;
  return R[2] * p.x + R[5] * p.y + R[8] * p.z + camera.t[2];
}

Verdict judge(const Camera& camera, const ViewCover& cover, const std::vector<Particle>& particles,
              const std::vector<float>& offsets, const std::vector<float3>& normals, std::size_t i, float3 p,
              float cos_limit) {
  const float3 eye = make_float3(camera.center[0], camera.center[1], camera.center[2]);
  const ViewPoint at = project(camera, p);
  // Off the image (also NaN, and before rounding, which could overflow).
  if (!(at.depth > 0.0f && at.x >= -0.5f && at.x < static_cast<float>(cover.width) - 0.5f && at.y >= -0.5f &&
        at.y < static_cast<float>(cover.height) - 0.5f))
    return Verdict::silent;
  const int x = static_cast<int>(std::lround(at.x)), y = static_cast<int>(std::lround(at.y));
  bool any = false, in_front = true;
  for (int v = std::max(0, y - 1); v <= std::min(cover.height - 1, y + 1); ++v)
    for (int u = std::max(0, x - 1); u <= std::min(cover.width - 1, x + 1); ++u) {
      const int k = cover.particle[static_cast<std::size_t>(v) * cover.width + u];
      if (k < 0) continue;
      any = true;
      const float3 q = particle_position(particles[k], offsets[k]);
      const float footprint = particles[k].radius;
      const float3 d = p - q;
      // The view's particles lie one footprint apart across its image, farther apart along a surface
      // it sees obliquely: the reach grows with the slant, up to that of the facing limit.
      const float3 ray = eye - q;
      const float slant = std::max(std::fabs(dot(normals[k], ray)) / length(ray), cos_limit);
      const float reach = 2.0f * footprint / slant;
      if (std::fabs(dot(normals[k], d)) <= footprint && dot(d, d) <= reach * reach &&
          dot(normals[i], normals[k]) >= 0.0f)
        return Verdict::agrees;
      if (!(at.depth < camera_depth(camera, q) - footprint)) in_front = false;
    }
  return any && in_front ? Verdict::contradicts : Verdict::silent;
}

}  // namespace

std::vector<ViewCover> view_covers(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                                   const std::vector<Camera*>& cameras) {
  // Each view's particles, by the camera's place in `cameras`.
  std::vector<std::vector<int>> members(cameras.size());
  for (std::size_t k = 0; k < particles.size(); ++k)
    for (std::size_t c = 0; c < cameras.size(); ++c)
      if (cameras[c]->index == particles[k].camera_index) {
        members[c].push_back(static_cast<int>(k));
        break;
      }
  std::vector<ViewCover> covers(cameras.size());
  // Views one per thread: each writes only its own cover.
#pragma omp parallel for schedule(dynamic, 1)
  for (std::size_t c = 0; c < cameras.size(); ++c) {
    const Camera& camera = *cameras[c];
    ViewCover& cover = covers[c];
    cover.width = camera.width;
    cover.height = camera.height;
    cover.particle.assign(static_cast<std::size_t>(cover.width) * cover.height, -1);
    std::vector<float> nearest(cover.particle.size(), FLT_MAX);  // squared pixel distance of the owner
    for (const int k : members[c]) {
      const ViewPoint at = project(camera, particle_position(particles[k], offsets[k]));
      if (!(at.depth > 0.0f)) continue;
      // The footprint in pixels, at least the pixel itself; a disc wholly off the image (or NaN)
      // covers nothing, and is left before its bounds are rounded.
      const float reach = std::max(particles[k].radius * camera.K[0] / at.depth, 0.5f);
      if (!(reach < static_cast<float>(cover.width + cover.height) && at.x + reach >= 0.0f && at.y + reach >= 0.0f &&
            at.x - reach <= static_cast<float>(cover.width - 1) && at.y - reach <= static_cast<float>(cover.height - 1)))
        continue;
      const int x0 = std::max(0, static_cast<int>(std::ceil(at.x - reach)));
      const int x1 = std::min(cover.width - 1, static_cast<int>(std::floor(at.x + reach)));
      const int y0 = std::max(0, static_cast<int>(std::ceil(at.y - reach)));
      const int y1 = std::min(cover.height - 1, static_cast<int>(std::floor(at.y + reach)));
      for (int y = y0; y <= y1; ++y)
        for (int x = x0; x <= x1; ++x) {
          const float dx = static_cast<float>(x) - at.x, dy = static_cast<float>(y) - at.y;
          const float d2 = dx * dx + dy * dy;
          const std::size_t pixel = static_cast<std::size_t>(y) * cover.width + x;
          if (d2 <= reach * reach && d2 < nearest[pixel]) {
            nearest[pixel] = d2;
            cover.particle[pixel] = k;
          }
        }
    }
  }
  return covers;
}

ViewVerdicts judge_by_views(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                            const std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                            const std::vector<ViewCover>& covers, float per_view, float cos_limit) {
  const std::size_t n = particles.size();
  ViewVerdicts verdicts;
  verdicts.agreeing.assign(n, 0.0f);
  verdicts.seeing.assign(n, 0.0f);
  verdicts.agreeing_views.assign(n, 0);
  verdicts.seeing_views.assign(n, 0);
#pragma omp parallel for schedule(dynamic, 4096)
  for (std::size_t i = 0; i < n; ++i) {
    const float3 p = particle_position(particles[i], offsets[i]);
    for (std::size_t c = 0; c < cameras.size(); ++c) {
      const Camera& camera = *cameras[c];
      if (camera.index == particles[i].camera_index) continue;
      const float3 towards = make_float3(camera.center[0], camera.center[1], camera.center[2]) - p;
      const float distance = length(towards);
      if (!(distance > 0.0f)) continue;
      const float cosine = dot(normals[i], towards) / distance;
      if (!(cosine >= cos_limit)) continue;  // too oblique, or NaN
      const Verdict verdict = judge(camera, covers[c], particles, offsets, normals, i, p, cos_limit);
      if (verdict == Verdict::silent) continue;
      verdicts.seeing[i] += per_view * cosine;
      ++verdicts.seeing_views[i];
      if (verdict == Verdict::agrees) {
        verdicts.agreeing[i] += per_view * cosine;
        ++verdicts.agreeing_views[i];
      }
    }
  }
  return verdicts;
}
