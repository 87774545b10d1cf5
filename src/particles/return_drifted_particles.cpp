#include "src/particles/return_drifted_particles.h"

#include <cmath>
#include <numbers>

#include "device/vector_math.h"

ReturnedParticles return_drifted_particles(const std::vector<Particle>& particles, std::vector<float>& offsets,
                                           std::vector<float3>& normals, float footprints, float turn_degrees) {
  ReturnedParticles returned;
  const float min_cos = std::cos(turn_degrees * std::numbers::pi_v<float> / 180.0f);
  for (std::size_t i = 0; i < particles.size(); ++i) {
    if (std::fabs(offsets[i]) > footprints * particles[i].radius) {
      offsets[i] = 0.0f;
      ++returned.moved;
    }
    // Both normals are unit vectors; a NaN normal goes back too.
    if (!(dot(normals[i], particles[i].init_normal) >= min_cos)) {
      normals[i] = particles[i].init_normal;
      ++returned.turned;
    }
  }
  return returned;
}
