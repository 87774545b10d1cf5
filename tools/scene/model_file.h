#pragma once

#include <string>
#include <vector>

#include "tools/scene/vec3.h"

namespace scene {

struct ModelPoint {
  Vec3 point;
  Vec3 normal;
};

// Reads the vertices of a binary little-endian PLY model (x y z, and nx ny nz when present; any
// other scalar properties are skipped). Throws std::runtime_error on anything else.
std::vector<ModelPoint> read_model_ply(const std::string& path);

}  // namespace scene
