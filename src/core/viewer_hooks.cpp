#include "src/core/viewer_hooks.h"

void sendParticlesToLumvik(const std::vector<Particle>&, const std::vector<float>&,
                           const std::vector<float3>&, const std::string&, int) {}

void sendDepthmapToLumvik(const CMatrix<float>&, const Camera&, const std::string&, int, int) {}

void sendCameraToLumvik(const Camera&, const std::string&, int) {}
