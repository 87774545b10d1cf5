#pragma once

#include <cstddef>
#include <vector>

#include "src/core/particle.h"

// Sends every particle that lies more than `footprints` of its own footprints along its ray from
// where it started (offset 0) back there, and returns how many went back. When each particle
// starts on a plane fitted to many measurements of its own view, a filter step that carries it
// farther than that follows neighbours that disagree with the measurements (the other view's
// own error on a surface few views see, a surface beside it), not better evidence.
std::size_t return_drifted_particles(const std::vector<Particle>& particles, std::vector<float>& offsets,
                                     float footprints);
