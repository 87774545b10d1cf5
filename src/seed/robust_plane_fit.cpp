#include "src/seed/robust_plane_fit.h"

#include <cmath>

#include "device/vector_math.h"
#include "src/core/camera.h"
#include "src/core/particle_position.h"
#include "src/core/smallest_eigenvector.h"

void robust_plane_fit(const std::vector<float3>& points, const Camera& camera, float3& c, float3& n) {
  const float3 center = {camera.center[0], camera.center[1], camera.center[2]};
  if (points.size() < 3) {
    c = points[0];
    n = center - c;
    return;
  }
  std::vector<float> weights(points.size(), 1.0f);
  for (int round = 0; round < 3; ++round) {
    float3 sum = {0.0f, 0.0f, 0.0f};
    float weight_sum = 0.0f;
    for (size_t k = 0; k < points.size(); ++k) {
      sum = sum + weights[k] * points[k];
      weight_sum += weights[k];
    }
    c = sum / weight_sum;

    Eigen::Matrix3f scatter = Eigen::Matrix3f::Zero();
    for (size_t k = 0; k < points.size(); ++k) {
      const float3 d = points[k] - c;
      const Eigen::Vector3f v(d.x, d.y, d.z);
      scatter += weights[k] * (v * v.transpose());
    }
    const Eigen::Vector3f e = smallest_eigenvector(scatter);
    n = {e(0), e(1), e(2)};
    if (!is_finite_value(n.x) || !is_finite_value(n.y) || !is_finite_value(n.z)) {
      n = center - c;
    } else if (dot(center - c, n) < 0.0f) {
      n = -n;
    }

    if (round < 2)
      for (size_t k = 0; k < points.size(); ++k) weights[k] = 1.0f / (std::fabs(dot(n, points[k] - c)) + 0.001f);
  }
}
