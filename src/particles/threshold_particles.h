#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"

// Keeps the particles with low <= values[i] <= high and removes the others from all three
// arrays. Survivors before the first hole keep their place; each hole is filled by the last
// survivor not yet moved, so the order is not stable. `values` is left as it was.
// Instances: int and float.
template <typename T>
void threshold_particles(std::vector<T>& values, std::vector<Particle>& particles, std::vector<float>& offsets,
                         std::vector<float3>& normals, T low, T high);
