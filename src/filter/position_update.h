#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "device/vector_math.h"
#include "src/spatial/hash_map.h"
#include "src/spatial/iterate_particles_cells.h"
#include "src/core/particle.h"
#include "src/filter/ray_frame.h"
#include "src/filter/sph_kernel.h"

// Energy of particle i in its own offset t, all others fixed:
//   E_i(t) = alpha |t| + sum_j ( w_i / rho_i |a(t)| g(a) + w_j / rho_j |b(t)| g(b) )
// with a = dot(n_i, p_j - p_i) and b = -dot(n_j, p_j - p_i). g is 1 for pairs facing the same way;
// for opposite normals it is beta on the penetrating side and 0 on the other (collision term).

// What both position functors read of a pass, bound once per thread.
struct PositionPass {
  SphKernel kernel{1.0f};
  const Particle* particles = nullptr;
  const float3* normals = nullptr;
  const float* offsets = nullptr;
  const float* density = nullptr;
  float radius = 0.0f;
  float alpha = 0.0f;
  float beta = 0.0f;

  void bind(const NeighbourPass& pass) {
    kernel = SphKernel(pass.radius);
    particles = pass.particles;
    normals = pass.normals;
    offsets = pass.offsets;
    density = pass.density;
    radius = pass.radius;
    alpha = pass.alpha;
    beta = pass.beta;
  }

  // Plane weights of a pair at distance r > 0: w_i = |n_i . u| F and w_j = |n_j . u| F with
  // u = R / r and F the kernel, times |n_i . n_j| when weighting by the normals.
  template <bool use_dot_weight>
  std::pair<float, float> pair_weights(float3 R, float r, float3 n_i, float3 n_j) const {
    float F = kernel(r);
    if constexpr (use_dot_weight) F = F * std::fabs(dot(n_i, n_j));
    const float3 u = R / r;
    return {std::fabs(dot(n_i, u)) * F, std::fabs(dot(n_j, u)) * F};
  }
};

// Exact step: the energy is piecewise linear and convex in t, its minimiser a weighted median of
// the breakpoints. The result is relaxed towards the old t by the static `omega`.
template <bool use_dot_weight>
struct UpdateParticlePosFunctor : PositionPass {
  using Out_t = float;

  // One breakpoint. kind 1: slope +weight above t; 2: slope -weight below t; 3: both. Bit 1 (value
  // 2) set means the term slopes down below t.
  struct Minimum {
    float t;
    float weight;
    int kind;
    bool operator<(const Minimum& other) const { return t < other.t; }
  };

  static inline float omega = 1.0f;

  std::vector<Minimum> records;

  float3 p_i{}, n_i{}, d_i{};
  float t_i = 0.0f;
  float inv_rho_i = 0.0f;
  float e = 0.0f;

  void setup(const NeighbourPass& pass) {
    bind(pass);
    records.reserve(4 * static_cast<size_t>(std::max(pass.max_cell_length, 0)));
  }
  void start(int index, const float3& p) {
    p_i = p;
    n_i = normals[index];
    d_i = particles[index].dir;
    t_i = offsets[index];
    inv_rho_i = 1.0f / density[index];
    e = dot(n_i, d_i);
    records.clear();
  }
  void pair(int j, const float3& p_j) {
    const float3 R = p_j - p_i;
    const float r2 = dot(R, R);
    if (kernel.outside(r2)) return;
    const float r = std::sqrt(r2);
    if (!(r <= radius)) return;
    if (r < 1e-6f) return;  // coincident particles have no direction
    const float3 n_j = normals[j];
    const auto [w_i, w_j] = pair_weights<use_dot_weight>(R, r, n_i, n_j);
    const float c = dot(n_i, n_j);

    const float a = dot(n_i, R);
    const float t1 = a / e + t_i;
    float s1 = -w_i * e;
    const float f = dot(n_j, d_i);
    const float t2 = dot(R, n_j) / f + t_i;
    float s2 = w_j * f;

    int kind1 = 3, kind2 = 3;
    if (c < 0.0f) {
      s1 *= beta;
      s2 *= beta;
      kind1 = s1 > 0.0f ? 1 : 2;
      kind2 = s2 > 0.0f ? 1 : 2;
    }
    // The strict tests drop planes nearly parallel to the ray, NaN and infinite t among them.
    if (radius > std::fabs(t1 - t_i)) records.push_back({t1, std::fabs(s1) * inv_rho_i, kind1});
    if (radius > std::fabs(t2 - t_i)) {
      const float inv_rho_j = 1.0f / density[j];
      records.push_back({t2, std::fabs(s2) * inv_rho_j, kind2});
    }
  }
  Out_t finish() {
    if (records.empty()) return t_i;  // no neighbours: not even the data term moves the particle
    records.push_back({0.0f, alpha, 3});
    return records_minimiser(records) * omega + (1.0f - omega) * t_i;
  }

  // Right end of the minimum of the piecewise linear energy, found by bisection with nth_element
  // instead of a full sort. Reorders `records`.
  static float records_minimiser(std::vector<Minimum>& records) {
    const int m = static_cast<int>(records.size());
    float slope = 0.0f;
    for (const Minimum& record : records)
      if (record.kind & 2) slope += record.weight;
    slope = -slope;
    int lo = 0, hi = m, mid = m / 2;
    float s = slope;
    while (true) {
      std::nth_element(records.begin() + lo, records.begin() + mid, records.begin() + hi);
      float s2 = s;
      for (int k = lo; k < mid; ++k) {
        s2 += records[k].kind == 3 ? 2.0f * records[k].weight : records[k].weight;
        if (s2 > 0.0f) {
          hi = mid;
          break;
        }
      }
      if (s2 <= 0.0f) {
        lo = mid;
        s = s2;
      }
      if (hi - lo < 2) break;
      mid = lo + (hi - lo) / 2;
    }
    return records[lo].t;
  }
};

// Gradient of the smoothed energy (|x| as sqrt(x^2 + 1e-6)) by t and by the two angles of the
// normal in the ray frame: x = dE/dt, y = dE/dphi, z = dE/dtheta.
template <bool use_dot_weight>
struct ComputeGradientFunctor : PositionPass {
  using Out_t = float3;
  static constexpr float eps = 1e-6f;


  int i = 0;
  float3 p_i{}, n_i{}, d_i{};
  float t_i = 0.0f;
  float inv_rho_i = 0.0f;
  float n_dot_d = 0.0f;
  float3 dn_phi{}, dn_theta{};
  float G_t = 0.0f, G_phi = 0.0f, G_theta = 0.0f;

  void setup(const NeighbourPass& pass) {
    bind(pass);
  }
  void start(int index, const float3& p) {
    i = index;
    p_i = p;
    n_i = normals[index];
    d_i = particles[index].dir;
    t_i = offsets[index];
    inv_rho_i = 1.0f / density[index];
    n_dot_d = dot(n_i, d_i);
    const RayFrame frame = ray_frame(d_i);
    const NormalAngles angles = normal_angles(n_i, d_i, frame);
    const float st = std::sin(angles.theta), ct = std::cos(angles.theta);
    const float sp = std::sin(angles.phi), cp = std::cos(angles.phi);
    dn_phi = (st * cp) * frame.p - (st * sp) * d_i;
    dn_theta = (ct * cp) * d_i + (ct * sp) * frame.p - st * frame.q;
    G_t = G_phi = G_theta = 0.0f;
  }
  void pair(int j, const float3& p_j) {
    if (j == i) return;
    const float3 R = p_j - p_i;
    const float r2 = dot(R, R);
    if (kernel.outside(r2)) return;
    const float r = std::sqrt(r2);
    if (!(r <= radius)) return;
    const float3 n_j = normals[j];
    const auto [w_i, w_j] = pair_weights<use_dot_weight>(R, r, n_i, n_j);
    const float a = dot(n_i, R);
    const float b = -dot(n_j, R);
    const float sa = std::sqrt(a * a + eps);
    const float sb = std::sqrt(b * b + eps);
    float ga = -n_dot_d * a * inv_rho_i * w_i / sa;
    float gb = dot(d_i, n_j) * b * (1.0f / density[j]) * w_j / sb;
    if (dot(n_i, n_j) < 0.0f) {
      ga = a > 0.0f ? ga * beta : 0.0f;
      gb = b > 0.0f ? gb * beta : 0.0f;
    }
    G_t = gb + (ga + G_t);
    G_phi += dot(dn_phi, R) * a * inv_rho_i * w_i / sa;
    G_theta += dot(dn_theta, R) * a * inv_rho_i * w_i / sa;
  }
  Out_t finish() const {
    const float x = alpha * t_i / std::sqrt(t_i * t_i + eps) + G_t;
    return {x, G_phi, G_theta};
  }
};

// Prints "  updating particle positions", runs the exact step with relaxation `omega` and writes the
// new offsets to new_offsets; offsets stay as they were.
void update_particles(std::vector<float>& new_offsets, const std::vector<Particle>& particles,
                      std::vector<float>& density, std::vector<float>& offsets, std::vector<float3>& normals,
                      const std::vector<unsigned long long>& cell_keys, const std::vector<int>& cell_prefix_sum,
                      const std::vector<unsigned int>& handles, const HashMap& cell_map,
                      const HashMap& first_cell_map, float3 grid_min, int max_cell_length, float radius, float alpha,
                      float beta, float omega, int stride);

// The gradient step for every result (i, g): t moves by -g.x * timestep, cut to `radius`, into
// new_offsets[i]; the normal's angles move by -timestep * (g.y, g.z), and the turned normal is kept
// only if it still faces the camera.
void gradient_step(std::vector<float>& new_offsets, const std::vector<float>& offsets, std::vector<float3>& normals,
                   const std::vector<Particle>& particles, const std::vector<std::pair<int, float3>>& results,
                   float radius, float timestep);

// Prints "  updating particle positions (gradient descent)" and takes one gradient step of length
// `timestep`: new_offsets gets the offsets moved by at most `radius`, and normals turn in place
// unless that would make them face away from their camera.
void update_particles_gd(std::vector<float>& new_offsets, const std::vector<Particle>& particles,
                         std::vector<float>& density, std::vector<float>& offsets, std::vector<float3>& normals,
                         const std::vector<unsigned long long>& cell_keys, const std::vector<int>& cell_prefix_sum,
                         const std::vector<unsigned int>& handles, const HashMap& cell_map,
                         const HashMap& first_cell_map, float3 grid_min, int max_cell_length, float radius,
                         float alpha, float beta, float unused, int stride, float timestep);
