#include "src/particles_from_depthmap.h"

#include <cfloat>
#include <cmath>

#include "device/vector_math.h"

namespace {

// World point of array pixel (x, y) at depth z. The pixel index is mirrored in both axes, as
// the mirrored principal point in K expects; inv_fx, inv_fy are 1 / K[0], 1 / K[4].
float3 back_project(int x, int y, float z, int width, int height, const Camera& camera, float inv_fx, float inv_fy) {
  const float u = static_cast<float>(width - 1 - x);
  const float v = static_cast<float>(height - 1 - y);
  const float3 p = make_float3((u - camera.K[6]) * inv_fx * z - camera.t[0],
                               (v - camera.K[7]) * inv_fy * z - camera.t[1], z - camera.t[2]);
  const float* R = camera.R;
  return make_float3(R[0] * p.x + R[1] * p.y + R[2] * p.z, R[3] * p.x + R[4] * p.y + R[5] * p.z,
                     R[6] * p.x + R[7] * p.y + R[8] * p.z);
}

}  // namespace

bool usable_depth(float d, float min_depth, float max_depth) {
  return std::fabs(d) <= FLT_MAX && d < max_depth && d > min_depth;
}

void create_particles_from_depthmap(std::vector<Particle>& particles, std::vector<float>& offsets,
                                    std::vector<float3>& normals, const CMatrix<float>& initial_depth,
                                    const CMatrix<float3>& normal_map, const CMatrix<float>& measured_depth,
                                    const CMatrix<uchar4>& image, const Camera& camera, float min_depth,
                                    float max_depth) {
  const int width = initial_depth.xSize;
  const int height = initial_depth.ySize;

  // The count is a hint for the reservation only; pixels with an unusable measurement are
  // still appended below.
  std::size_t count = 0;
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < width; ++x)
      if (usable_depth(initial_depth(x, y), min_depth, max_depth) &&
          usable_depth(measured_depth(x, y), min_depth, max_depth))
        ++count;
  particles.reserve(particles.size() + count);
  offsets.reserve(offsets.size() + count);
  normals.reserve(normals.size() + count);

  const float inv_fx = 1.0f / camera.K[0];
  const float inv_fy = 1.0f / camera.K[4];
  const float3 center = make_float3(camera.center[0], camera.center[1], camera.center[2]);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const float a = initial_depth(x, y);
      if (!usable_depth(a, min_depth, max_depth)) continue;
      float b = measured_depth(x, y);
      const bool no_measurement = !usable_depth(b, min_depth, max_depth);
      if (no_measurement) b = a;

      Particle p;
      p.pos = back_project(x, y, b, width, height, camera, inv_fx, inv_fy);
      const float3 to_center = center - p.pos;
      p.dir = to_center / length(to_center);
      p.init_normal = p.dir;
      p.color = image(x, y);
      p.camera_index = camera.index;
      p.pixel_index = y * width + x;
      p.radius = inv_fx * a;
      p.no_measurement = no_measurement;
      particles.push_back(p);
      normals.push_back(normal_map(x, y));

      const float3 q = back_project(x, y, a, width, height, camera, inv_fx, inv_fy);
      offsets.push_back(dot(q - p.pos, p.dir));
    }
  }
}
