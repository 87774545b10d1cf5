#pragma once

#include <string>
#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"

// Writes the particle model as a binary PLY file in the machine's byte order: one element
// "vertex" with x, y, z (current position pos + offset * dir), nx, ny, nz, diffuse_red,
// diffuse_green, diffuse_blue (uchar) and psz (the radius). An existing file is overwritten.
void writeParticlesToPLY(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, std::string path);
