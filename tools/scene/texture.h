#pragma once

#include <cstdint>

#include "tools/scene/ray_cast.h"

namespace scene {

// Deterministic 64-bit mixing of a key; the basis of all noise here.
uint64_t hash64(uint64_t key);

// Smooth value noise in [0, 1] at a world point: lattice values from hash64, trilinear with
// smoothstep weights.
double value_noise(Vec3 p);

// Which of the material's two colours a pattern of cell or band size `scale` puts at a surface hit
// of the shape: 0 for colour a, 1 for b.
int pattern_choice(const Shape& shape, const Hit& hit, Pattern pattern, double scale);

// The two-sided diffuse shading of a surface with this normal under the fixed light, 0.4 to 1.
double diffuse_shade(Vec3 normal);

// Linear RGB in [0, 1] of a surface hit: the shape's pattern, value-noise brightness and a
// two-sided diffuse shading from a fixed light direction.
Vec3 surface_colour(const Shape& shape, const Hit& hit);

// Colour of a ray that hits nothing: a plain vertical gradient.
Vec3 background_colour(Vec3 direction);

}  // namespace scene
