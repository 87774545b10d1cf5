#pragma once

#include <cstddef>
#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"

// How many particles went back to where they started.
struct ReturnedParticles {
  std::size_t moved = 0;   // along the ray, to offset 0
  std::size_t turned = 0;  // normal, to init_normal
};

// Sends every particle that lies more than `footprints` of its own footprints along its ray from
// where it started (offset 0) back there, and turns every normal that turned more than
// `turn_degrees` from the particle's start normal (init_normal) back to it. When each particle
// starts on a plane fitted to many measurements of its own view, a filter step that carries it
// farther than that follows neighbours that disagree with the measurements (the other view's
// own error on a surface few views see, a surface beside it), not better evidence; the normal
// of a surface few views see rests on a handful of such neighbours.
ReturnedParticles return_drifted_particles(const std::vector<Particle>& particles, std::vector<float>& offsets,
                                           std::vector<float3>& normals, float footprints, float turn_degrees);
