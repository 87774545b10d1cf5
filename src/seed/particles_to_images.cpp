#include "src/seed/particles_to_images.h"

#include "device/vector_math.h"
#include "src/core/particle_position.h"

namespace {

// R * v with R stored by columns.
float3 rotate(const float* R, float3 v) {
  return {R[0] * v.x + R[3] * v.y + R[6] * v.z, R[1] * v.x + R[4] * v.y + R[7] * v.z,
          R[2] * v.x + R[5] * v.y + R[8] * v.z};
}

const double kCos70Degrees = 0.3420201433256688;

}  // namespace

void particles_to_images(CMatrix<float>& depth, CMatrix<float3>& normal_map, const std::vector<Particle>& particles,
                         const std::vector<float>& offsets, const std::vector<float3>& normals,
                         const std::vector<Superpixel>& superpixels, const Camera& camera, float min_depth,
                         float max_depth) {
  const int W = camera.width;
  const int H = camera.height;
  depth.setSize(W, H);
  normal_map.setSize(W, H);
  const float inv_fx = 1.0f / camera.K[0];
  const float inv_fy = 1.0f / camera.K[4];
  const float3 t = {camera.t[0], camera.t[1], camera.t[2]};

  for (size_t i = 0; i < particles.size(); ++i) {
    const Particle& particle = particles[i];
    if (particle.camera_index != camera.index) continue;
    if (static_cast<double>(dot(particle.dir, normals[i])) < kCos70Degrees) continue;
    const Superpixel& s = superpixels[particle.pixel_index];
    if (s.pixels.empty()) continue;

    const float3 N = rotate(camera.R, normals[i]);
    const float3 Q = rotate(camera.R, particle_position(particle, offsets[i])) + t;
    const float g = dot(N, Q);
    for (const auto& [x, y] : s.pixels) {
      const float3 ray = {(W - 1 - x - camera.K[6]) * inv_fx, (H - 1 - y - camera.K[7]) * inv_fy, 1.0f};
      const float z = g / dot(N, ray);
      depth(x, y) = (is_finite_value(z) && min_depth < z && z < max_depth) ? z : 0.0f;
      normal_map(x, y) = normals[i];
    }
  }
}
