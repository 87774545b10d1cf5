#pragma once

#include <string>
#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"

// How long a filter run goes on and how densely it samples its neighbours.
struct FilterSchedule {
  int exact_iterations = 2;     // most exact median steps, phase 1
  int gradient_iterations = 10;  // most gradient steps, phase 2
  int cell_samples = 5;         // wanted neighbours per cell; sets the neighbour stride
};

// The superpixel-level model: few particles, many steps, dense sampling.
inline constexpr FilterSchedule kSuperpixelSchedule{50, 50, 50};
// The fine model: one particle per pixel, a few steps.
inline constexpr FilterSchedule kPixelSchedule{2, 10, 5};

// The settings of one filter stage.
struct FilterOptions {
  float alpha = 0.001f;  // strength of the data term, which pulls a particle to its measurement
  float beta = 1.0f;     // strength of the collision term between particles facing apart
  float radius = 0.0f;   // smoothing radius and cell edge; a radius the 32-bit kernel can compute
  float timestep = 0.005f;  // length of a gradient step
  FilterSchedule schedule = kPixelSchedule;
  bool use_normal_dot_weight = true;  // after the first normal estimate, pairs weigh by their normals' agreement
  std::string label = "particles";    // name of the set for the viewer hook

  // Throws std::runtime_error naming the first setting a run cannot work with: strengths and time
  // step must be finite and not negative, the kernel of the radius computable, iteration counts not
  // negative and not both 0 (the closing step would divide by a density never computed), and
  // cell_samples at least 1.
  void Check() const;
};

// Moves offsets and normals of a particle set towards the minimum of the particle energy: up to
// exact_iterations exact median steps with a shrinking relaxation factor, up to gradient_iterations
// gradient steps that also turn the normals, and one closing exact step. The set comes back
// reordered into cell order. Empty offsets and normals are filled (zeros, init_normal).
void filter_particles(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                      const FilterOptions& options);

// Neighbour stride of a run: about `cell_samples` particles of each neighbour cell are visited.
// (int)(average_length / cell_samples) if that is above 1, else 1.
int neighbour_stride(float average_length, int cell_samples);
