#include "src/particles/particles_from_depthmap.h"

#include <cfloat>
#include <cmath>

#include "device/vector_math.h"
#include "src/core/back_project.h"

// Depths of 0 and below are never usable, whatever the lower limit: 0 marks a pixel without depth
// in the input maps and in rendered depth images, and such a depth back-projects onto the camera
// centre, where every pixel of a view would pile up in one cell with a footprint of 0.
bool usable_depth(float d, float min_depth, float max_depth) {
  return std::fabs(d) <= FLT_MAX && d < max_depth && d > min_depth && d > 0.0f;
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
