#pragma once

#include <string>
#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"

template <typename T>
class CMatrix;
struct Camera;

// Hooks through which an external viewer could follow a run. They are deliberately empty:
// calling them has no effect, but the calls stay at their places in the flow.
void sendParticlesToLumvik(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                           const std::vector<float3>& normals, const std::string& name, int iteration);
void sendDepthmapToLumvik(const CMatrix<float>& depthmap, const Camera& camera, const std::string& name,
                          int a, int b);
void sendCameraToLumvik(const Camera& camera, const std::string& name, int iteration);
