#pragma once

// Synthetic particle sets for tests and benchmarks: virtual pinhole views of analytic surfaces with
// noisy depths, made the way particles are made from depth maps (pos on the measured point, dir
// towards the camera centre, radius depth / fx, offset 0, normal facing the camera).

#include <cmath>
#include <cstdint>
#include <vector>

#include "device/vector_math.h"
#include "src/core/particle.h"

namespace cloud {

struct ParticleSet {
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
  size_t size() const { return particles.size(); }
  void add(const Particle& p, float offset, float3 normal) {
    particles.push_back(p);
    offsets.push_back(offset);
    normals.push_back(normal);
  }
};

// A particle at pos measured by `camera` along the ray dir, which is its initial normal too.
inline Particle particle(float3 pos, float3 dir = {0.0f, 0.0f, 1.0f}, int camera = 0, float radius = 0.0f) {
  Particle p{};
  p.pos = pos;
  p.dir = dir;
  p.init_normal = dir;
  p.camera_index = camera;
  p.radius = radius;
  return p;
}

// Counter-based generator: the same (seed, index) always gives the same numbers, in any order.
inline uint64_t mix(uint64_t x) {
  x += 0x9e3779b97f4a7c15ULL;
  x = (x ^ (x >> 30)) * 0xbf58476d1ce4e5b9ULL;
  x = (x ^ (x >> 27)) * 0x94d049bb133111ebULL;
  return x ^ (x >> 31);
}
inline float uniform01(uint64_t seed, uint64_t index) {
  return static_cast<float>(mix(seed * 0x100000001b3ULL ^ index) >> 40) * (1.0f / 16777216.0f);
}
// Approximately normal: sum of four uniforms, centred and scaled to unit variance.
inline float gaussian(uint64_t seed, uint64_t index) {
  float s = uniform01(seed, 4 * index) + uniform01(seed, 4 * index + 1) + uniform01(seed, 4 * index + 2) +
            uniform01(seed, 4 * index + 3);
  return (s - 2.0f) * 1.7320508f;
}

inline float3 normalized(float3 v) { return v / length(v); }

// A pinhole view looking from `centre` at `target`.
struct View {
  float3 centre;
  float3 target;
  int width;
  int height;
  float fx;
};

// Analytic scene: a plane with normal (0, 0, 1) at height plane_z, bounded to |x|, |y| <= plane_half.
struct Scene {
  float plane_z = 0.0f;
  float plane_half = 1e30f;
};

// Depth along the ray (camera-frame z, ray scaled to unit forward component) of the hit, or -1.
inline float hit_depth(const Scene& scene, float3 c, float3 ray) {
  if (std::fabs(ray.z) <= 1e-9f) return -1.0f;
  const float t = (scene.plane_z - c.z) / ray.z;
  const float3 p = c + t * ray;
  return t > 0.0f && std::fabs(p.x) <= scene.plane_half && std::fabs(p.y) <= scene.plane_half ? t : -1.0f;
}

// Appends one particle per pixel that sees the scene. `noise` is the standard deviation of the
// depth error relative to the depth.
inline void add_view(ParticleSet& set, const Scene& scene, const View& view, int camera_index, float noise,
                     uint64_t seed) {
  const float3 forward = normalized(view.target - view.centre);
  float3 helper = std::fabs(forward.z) < 0.9f ? float3{0.0f, 0.0f, 1.0f} : float3{0.0f, 1.0f, 0.0f};
  const float3 right = normalized(cross(forward, helper));
  const float3 up = cross(right, forward);
  const float cx = 0.5f * static_cast<float>(view.width - 1), cy = 0.5f * static_cast<float>(view.height - 1);
  for (int y = 0; y < view.height; ++y) {
    for (int x = 0; x < view.width; ++x) {
      const float3 ray = forward + ((static_cast<float>(x) - cx) / view.fx) * right +
                         ((static_cast<float>(y) - cy) / view.fx) * up;
      const float depth = hit_depth(scene, view.centre, ray);
      if (depth <= 0.0f) continue;
      const uint64_t pixel = static_cast<uint64_t>(y) * view.width + x;
      const float measured = depth * (1.0f + noise * gaussian(seed + camera_index, pixel));
      const float3 pos = view.centre + measured * ray;
      Particle p = particle(pos, normalized(view.centre - pos), camera_index, depth / view.fx);
      p.color = {128, 128, 128, 255};
      p.pixel_index = static_cast<int>(pixel);
      set.add(p, 0.0f, p.dir);
    }
  }
}

// `views` cameras spread on a circle of radius `spread` at height `height`, all looking at `target`.
inline ParticleSet ring_views(const Scene& scene, int views, int width, int height_px, float fx, float height,
                              float spread, float3 target, float noise, uint64_t seed) {
  ParticleSet set;
  set.particles.reserve(static_cast<size_t>(views) * width * height_px);
  for (int v = 0; v < views; ++v) {
    const float angle = 6.2831853f * static_cast<float>(v) / static_cast<float>(views);
    add_view(set, scene, {{spread * std::cos(angle), spread * std::sin(angle), height}, target, width, height_px, fx}, v,
             noise, seed);
  }
  return set;
}

// Cameras at height `height` above the plane z = 0, all looking at the origin.
inline ParticleSet plane_views(int views, int width, int height_px, float fx, float height, float spread,
                               float noise, uint64_t seed, float plane_half = 1e30f) {
  Scene scene;
  scene.plane_half = plane_half;
  return ring_views(scene, views, width, height_px, fx, height, spread, {0.0f, 0.0f, 0.0f}, noise, seed);
}

// Random particles in a box with random unit normals turned towards random directions.
inline ParticleSet random_cloud(int count, float extent, uint64_t seed) {
  ParticleSet set;
  for (int k = 0; k < count; ++k) {
    Particle p = particle({extent * uniform01(seed, 8 * k), extent * uniform01(seed, 8 * k + 1),
                           extent * uniform01(seed, 8 * k + 2)},
                          normalized({uniform01(seed, 8 * k + 3) - 0.5f, uniform01(seed, 8 * k + 4) - 0.5f, 1.0f}),
                          k % 3, 0.05f * extent);
    p.pixel_index = k;
    float3 n = normalized({uniform01(seed, 8 * k + 6) - 0.5f, uniform01(seed, 8 * k + 7) - 0.5f,
                           uniform01(seed + 1, k) - 0.5f});
    if (dot(n, p.dir) <= 0.0f) n = -n;
    set.add(p, 0.1f * extent * (uniform01(seed, 8 * k + 5) - 0.5f), n);
  }
  return set;
}

}  // namespace cloud
