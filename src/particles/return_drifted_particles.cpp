#include "src/particles/return_drifted_particles.h"

#include <cmath>

std::size_t return_drifted_particles(const std::vector<Particle>& particles, std::vector<float>& offsets,
                                     float footprints) {
  std::size_t returned = 0;
  for (std::size_t i = 0; i < particles.size(); ++i)
    if (std::fabs(offsets[i]) > footprints * particles[i].radius) {
      offsets[i] = 0.0f;
      ++returned;
    }
  return returned;
}
