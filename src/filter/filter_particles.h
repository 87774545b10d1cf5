#pragma once

#include <string>
#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"

// Moves offsets and normals of a particle set towards the minimum of the particle energy: up to
// `exact_iterations` exact median steps with a shrinking relaxation factor, up to
// `gradient_iterations` gradient steps that also turn the normals, and one closing exact step.
// `radius` is the smoothing radius and cell edge; `cell_samples` the wanted neighbours per cell,
// which sets the neighbour stride. The set comes back reordered into cell order. Empty offsets and
// normals are filled (zeros, init_normal).
void filter_particles(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                      float alpha, float beta, float radius, int exact_iterations, int gradient_iterations,
                      float timestep, int cell_samples, std::string label);

// The same with the neighbour stride given (at least 1) instead of taken from the set's cells:
// tiles of one run must sample their neighbours alike.
void filter_particles(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                      float alpha, float beta, float radius, int exact_iterations, int gradient_iterations,
                      float timestep, int cell_samples, std::string label, int stride);

// Neighbour stride of a run: about `cell_samples` particles of each neighbour cell are visited.
// (int)(average_length / cell_samples) if that is above 1, else 1.
int neighbour_stride(float average_length, int cell_samples);
