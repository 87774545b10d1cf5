#include "dasp/pixel_features.h"

#include <algorithm>
#include <cmath>

#include "device/vector_math.h"

namespace dasp {

namespace {

// Steepest surface slope, in depth change per pixel footprint, still treated as one surface; a
// larger jump between neighbours is a depth edge and is not differenced across.
constexpr float kMaxSlope = 10.0f;
// Lower bound of the cosine between view ray and normal when turning pixels into world area, so
// that grazing surfaces don't take all seeds.
constexpr float kMinCosine = 0.2f;

struct DepthView {
  const PixelFeatures& f;
  const std::vector<float>& z;
  float focal;

  // Whether neighbour (nx, ny) lies on the same surface as the pixel i at step k.
  bool continuous(unsigned i, int nx, int ny, int k) const {
    if (nx < 0 || ny < 0 || nx >= static_cast<int>(f.width) || ny >= static_cast<int>(f.height)) return false;
    const unsigned j = static_cast<unsigned>(ny) * f.width + static_cast<unsigned>(nx);
    if (!f.valid[j]) return false;
    return std::fabs(z[j] - z[i]) <= static_cast<float>(k) * kMaxSlope * z[i] / focal;
  }

  // Change of the 3-D point per pixel along (dx, dy), from the widest usable stencil (wide
  // stencils average out depth quantisation). Returns false if no neighbour is usable.
  bool derivative(unsigned x, unsigned y, int dx, int dy, float3& d) const {
    const unsigned i = y * f.width + x;
    for (int k = 3; k >= 1; --k) {
      const int fx = static_cast<int>(x) + k * dx, fy = static_cast<int>(y) + k * dy;
      const int bx = static_cast<int>(x) - k * dx, by = static_cast<int>(y) - k * dy;
      const bool forward = continuous(i, fx, fy, k);
      const bool backward = continuous(i, bx, by, k);
      const float3 p = f.position[i];
      if (forward && backward) {
        d = (f.position[fy * f.width + fx] - f.position[by * f.width + bx]) / static_cast<float>(2 * k);
        return true;
      }
      if (forward) {
        d = (f.position[fy * f.width + fx] - p) / static_cast<float>(k);
        return true;
      }
      if (backward) {
        d = (p - f.position[by * f.width + bx]) / static_cast<float>(k);
        return true;
      }
    }
    return false;
  }
};

}  // namespace

PixelFeatures compute_pixel_features(const slimage::Image3ub& color, const slimage::Image1ui16& depth,
                                     const Parameters& parameters) {
  PixelFeatures f;
  f.width = depth.width();
  f.height = depth.height();
  const std::size_t n = depth.size();
  f.valid.assign(n, 0);
  f.position.assign(n, float3{0, 0, 0});
  f.normal.assign(n, float3{0, 0, 0});
  f.color.resize(n);
  f.area.assign(n, 0.0f);
  std::vector<float> z(n, 0.0f);

  const float focal = parameters.focal;
  const float inv_focal = 1.0f / focal;
  const int h = static_cast<int>(f.height);

#pragma omp parallel for schedule(static)
  for (int y = 0; y < h; ++y) {
    for (unsigned x = 0; x < f.width; ++x) {
      const unsigned i = static_cast<unsigned>(y) * f.width + x;
      const auto& c = color[i];
      f.color[i] = float3{c[0] / 255.0f, c[1] / 255.0f, c[2] / 255.0f};
      if (depth[i] == 0) continue;
      const float zi = static_cast<float>(depth[i]) * parameters.depth_scale;
      z[i] = zi;
      f.valid[i] = 1;
      f.position[i] = float3{(static_cast<float>(x) - parameters.principal_x) * zi * inv_focal,
                             (static_cast<float>(y) - parameters.principal_y) * zi * inv_focal, zi};
    }
  }

  // Serial sum so that the mean doesn't depend on the thread count.
  double depth_sum = 0.0;
  std::size_t valid_count = 0;
  for (std::size_t i = 0; i < n; ++i) {
    if (f.valid[i]) {
      depth_sum += z[i];
      ++valid_count;
    }
  }
  f.mean_depth = valid_count > 0 ? static_cast<float>(depth_sum / valid_count) : 1.0f;
  const float invalid_area = (f.mean_depth * inv_focal) * (f.mean_depth * inv_focal);

  const DepthView view{f, z, focal};
#pragma omp parallel for schedule(static)
  for (int y = 0; y < h; ++y) {
    for (unsigned x = 0; x < f.width; ++x) {
      const unsigned i = static_cast<unsigned>(y) * f.width + x;
      if (!f.valid[i]) {
        f.area[i] = invalid_area;
        continue;
      }
      const float3 p = f.position[i];
      const float distance = length(p);
      const float3 towards_camera = -p / distance;
      float3 normal = towards_camera;
      float3 du, dv;
      if (view.derivative(x, static_cast<unsigned>(y), 1, 0, du) &&
          view.derivative(x, static_cast<unsigned>(y), 0, 1, dv)) {
        const float3 c = cross(du, dv);
        const float len = length(c);
        if (len > 0.0f && std::isfinite(len)) normal = c / len;
        if (dot(normal, towards_camera) < 0.0f) normal = -normal;
      }
      f.normal[i] = normal;
      // A pixel at depth z covers (z/f)^2 on a fronto-parallel plane; tilting the surface against
      // the view ray by angle t and looking off-axis by angle a scales that by cos(a) / cos(t).
      const float cos_tilt = std::max(dot(normal, towards_camera), kMinCosine);
      const float cos_axis = z[i] / distance;
      const float footprint = z[i] * inv_focal;
      f.area[i] = footprint * footprint * cos_axis / cos_tilt;
    }
  }
  return f;
}

void GeometrySums::add(const PixelFeatures& f, std::size_t i) {
  count += 1;
  x += static_cast<double>(i % f.width);
  y += static_cast<double>(i / f.width);
  if (!f.valid[i]) return;
  valid += 1;
  px += f.position[i].x;
  py += f.position[i].y;
  pz += f.position[i].z;
  nx += f.normal[i].x;
  ny += f.normal[i].y;
  nz += f.normal[i].z;
}

void GeometrySums::surface(float3& position, float3& normal) const {
  position = float3{static_cast<float>(px / valid), static_cast<float>(py / valid), static_cast<float>(pz / valid)};
  const float3 sum{static_cast<float>(nx), static_cast<float>(ny), static_cast<float>(nz)};
  const float len = length(sum);
  normal = len > 1e-6f ? sum / len : -position / length(position);
}

}  // namespace dasp
