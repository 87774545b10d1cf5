#pragma once

#include <cfloat>
#include <cmath>

#include "src/core/particle.h"

// Current position of a particle: pos + t * dir, component by component in 32-bit float. Every
// operator forms positions this way so that they agree to the bit.
inline float3 particle_position(const Particle& p, float t) {
  return {p.pos.x + t * p.dir.x, p.pos.y + t * p.dir.y, p.pos.z + t * p.dir.z};
}

// Finite means |v| <= FLT_MAX; NaN and infinities fail.
inline bool is_finite_value(float v) { return std::fabs(v) <= FLT_MAX; }
