#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// The refine step of --improve-cameras: renders the model into every view (depth and normals),
// refines the rendered depth maps by photo-consistency with `radius`, and makes the particles anew
// from the measured depth maps placed with the current poses. The measured maps are never
// replaced: they stay the data of every pass. With DIR/debug present, the rendered, refined and
// trusted depth maps are dumped there. Throws ImprovementError when the model is empty or no
// particle is made.
void rebuild_model(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                   std::vector<Camera*> const& cameras, std::vector<CMatrix<float>> const& measured_depthmaps,
                   float radius);
