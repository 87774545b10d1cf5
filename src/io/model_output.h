#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"

// A model file could not be written. The text names the file and the system's reason.
class ModelWriteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Writes the particle model as a binary PLY file in the machine's byte order: one element
// "vertex" with x, y, z (current position pos + offset * dir), nx, ny, nz, diffuse_red,
// diffuse_green, diffuse_blue (uchar) and psz (the radius). The file is written under a
// temporary name and renamed over path when complete, so an existing file is replaced whole or
// not at all. Throws ModelWriteError when the file cannot be written.
void writeParticlesToPLY(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, std::string path);
