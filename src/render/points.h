#pragma once

#include <vector>

#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/core/particle.h"

// The device copy of the particles, as a structure of arrays so that neighbouring threads read
// neighbouring floats. A plain record passed to kernels by value; it owns nothing.
struct Points {
  ketra::Array<float, 2> positions;  // (n, 3): row 0 all x, row 1 all y, row 2 all z
  ketra::Array<float, 2> normals;    // (n, 3), same layout, unit normals
  ketra::Array<uchar4, 1> colors;    // (n)
  ketra::Array<float, 1> radii;      // (n) world radius of each point's disk
};

// Uploads the particles at their current positions with the given normals. offsets and normals
// must have at least particles.size() entries. An empty list fails in the allocator.
Points createPoints(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                    const std::vector<float3>& normals);

// Frees the four arrays of a Points made by createPoints.
void freePoints(Points& points);
