#include "tools/scene/texture.h"

#include <algorithm>

namespace scene {
namespace {

double lattice(int64_t x, int64_t y, int64_t z) {
  const uint64_t key = static_cast<uint64_t>(x) * 0x9E3779B97F4A7C15ull ^
                       static_cast<uint64_t>(y) * 0xC2B2AE3D27D4EB4Full ^
                       static_cast<uint64_t>(z) * 0x165667B19E3779F9ull;
  return static_cast<double>(hash64(key) >> 11) * (1.0 / 9007199254740992.0);
}

double smooth(double f) { return f * f * (3.0 - 2.0 * f); }

double lerp(double a, double b, double f) { return a + (b - a) * f; }

int parity(double v) { return static_cast<int>(std::floor(v)) & 1; }

}  // namespace

int pattern_choice(const Shape& s, const Hit& hit, Pattern pattern, double scale) {
  const Vec3 q = to_local(s, hit.point);
  const Vec3 n = hit.local_normal;
  switch (pattern) {
    case Pattern::checker: {
      // Checker over the two coordinates that run along the face, so that a face lying exactly
      // on a cell border does not flicker.
      const double ax = std::abs(n.x), ay = std::abs(n.y), az = std::abs(n.z);
      double u = q.x, v = q.y;
      if (ax >= ay && ax >= az) u = q.z;
      else if (ay >= ax && ay >= az) v = q.z;
      return parity(u / scale) ^ parity(v / scale);
    }
    case Pattern::stripes: return parity(q.z / scale + 0.37);
    case Pattern::faces: return n.x + n.y + n.z > 0 ? 0 : 1;
  }
  return 0;
}

uint64_t hash64(uint64_t key) {
  key += 0x9E3779B97F4A7C15ull;
  key = (key ^ (key >> 30)) * 0xBF58476D1CE4E5B9ull;
  key = (key ^ (key >> 27)) * 0x94D049BB133111EBull;
  return key ^ (key >> 31);
}

double value_noise(Vec3 p) {
  const double fx = std::floor(p.x), fy = std::floor(p.y), fz = std::floor(p.z);
  const auto ix = static_cast<int64_t>(fx), iy = static_cast<int64_t>(fy), iz = static_cast<int64_t>(fz);
  const double wx = smooth(p.x - fx), wy = smooth(p.y - fy), wz = smooth(p.z - fz);
  double plane[2];
  for (int k = 0; k < 2; ++k) {
    const double a = lerp(lattice(ix, iy, iz + k), lattice(ix + 1, iy, iz + k), wx);
    const double b = lerp(lattice(ix, iy + 1, iz + k), lattice(ix + 1, iy + 1, iz + k), wx);
    plane[k] = lerp(a, b, wy);
  }
  return lerp(plane[0], plane[1], wz);
}

double diffuse_shade(Vec3 normal) {
  const Vec3 light = normalize({0.4, 0.3, 1.0});
  return 0.4 + 0.6 * std::abs(dot(normal, light));
}

Vec3 surface_colour(const Shape& s, const Hit& hit) {
  const Material& m = s.material;
  const Vec3 base = pattern_choice(s, hit, m.pattern, m.scale) ? m.colour_b : m.colour_a;
  const double grain = 0.65 * value_noise(8.0 * hit.point) + 0.35 * value_noise(29.0 * hit.point);
  const double k = (0.6 + 0.8 * grain) * diffuse_shade(hit.normal);
  return {std::min(1.0, k * base.x), std::min(1.0, k * base.y), std::min(1.0, k * base.z)};
}

Vec3 background_colour(Vec3 direction) {
  const double up = std::clamp(normalize(direction).z, -1.0, 1.0);
  return {0.55 + 0.2 * up, 0.65 + 0.2 * up, 0.80 + 0.15 * up};
}

}  // namespace scene
