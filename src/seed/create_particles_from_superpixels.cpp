#include "src/seed/create_particles_from_superpixels.h"

#include <cfloat>
#include <cmath>

#include "device/vector_math.h"
#include "src/core/back_project.h"
#include "src/core/particle_position.h"
#include "src/seed/robust_plane_fit.h"

namespace {

const double kPi = 3.141592653589793;

// Mean normal of the map over the superpixel's pixels with a target depth; false when no more
// than 3 pixels have one.
bool mean_normal(const Superpixel& s, const CMatrix<float>& target_depth, const CMatrix<float3>& normal_map,
                 float3& normal) {
  if (normal_map.size() == 0 || target_depth.size() == 0) return false;
  float3 sum = {0.0f, 0.0f, 0.0f};
  int count = 0;
  for (const auto& [x, y] : s.pixels) {
    if (target_depth(x, y) == 0.0f) continue;
    sum = sum + normal_map(x, y);
    ++count;
  }
  if (count <= 3) return false;
  normal = sum / length(sum);
  return true;
}

}  // namespace

void create_particles_from_superpixels(std::vector<Particle>& particles, std::vector<float>& offsets,
                                       std::vector<float3>& normals, const std::vector<Superpixel>& superpixels,
                                       const CMatrix<float>& target_depth, const CMatrix<float3>& normal_map,
                                       const CMatrix<float>& measured_depth, const Camera& camera) {
  const float inv_fx = 1.0f / camera.K[0];
  const float inv_fy = 1.0f / camera.K[4];
  const float3 center = {camera.center[0], camera.center[1], camera.center[2]};
  const size_t reserve = particles.size() + superpixels.size();
  particles.reserve(reserve);
  offsets.reserve(reserve);
  normals.reserve(reserve);

#pragma omp parallel
  {
    std::vector<float3> points;
#pragma omp for schedule(static)
    for (long k = 0; k < static_cast<long>(superpixels.size()); ++k) {
      const Superpixel& s = superpixels[k];
      points.clear();
      for (const auto& [x, y] : s.pixels) {
        const float d = measured_depth(x, y);
        if (d != 0.0f && is_finite_value(d) && d != FLT_MAX)
          points.push_back(back_project(x, y, d, measured_depth.xSize, measured_depth.ySize, camera, inv_fx, inv_fy));
      }
      // Too few valid depths: no particle. An empty superpixel passes the 80 % rule but has no
      // point to fit, so it yields none either.
      if (0.8 * static_cast<double>(s.pixels.size()) > static_cast<double>(points.size()) || points.empty())
        continue;

      float3 c, n;
      robust_plane_fit(points, camera, c, n);
      Particle p{};
      p.pos = c;
      p.init_normal = n;
      const float3 to_center = center - c;
      const float distance = length(to_center);
      p.dir = to_center / distance;
      p.color = s.color;
      p.camera_index = camera.index;
      p.pixel_index = static_cast<int>(k);
      p.radius = static_cast<float>((distance / camera.K[0]) * std::sqrt(points.size() / kPi));
      p.no_measurement = false;

      float3 normal = n;
      mean_normal(s, target_depth, normal_map, normal);

      float t = 0.0f;
      if (target_depth.size() > 0) {
        points.clear();
        for (const auto& [x, y] : s.pixels) {
          const float d = target_depth(x, y);
          if (d != 0.0f && is_finite_value(d))
            points.push_back(back_project(x, y, d, target_depth.xSize, target_depth.ySize, camera, inv_fx, inv_fy));
        }
        if (!points.empty()) {
          float3 c2, n2;
          robust_plane_fit(points, camera, c2, n2);
          t = dot(c2 - p.pos, p.dir);
        }
      }

#pragma omp critical
      {
        particles.push_back(p);
        normals.push_back(normal);
        offsets.push_back(t);
      }
    }
  }
}
