#include "src/filter/position_update.h"

#include <cmath>
#include <iostream>

namespace {

void set_lane(float rows[3][kLanes], int lane, float3 v) {
  rows[0][lane] = v.x;
  rows[1][lane] = v.y;
  rows[2][lane] = v.z;
}

}  // namespace

void PositionLanes::fill(const PositionPass& pass, const CellBatch& batch, bool with_angles, NormalAngles* angles) {
  for (int l = 0; l < kLanes; ++l) {
    if (l >= batch.count) {  // unused lanes repeat the last used one
      for (float* row : {n[0], n[1], n[2], d[0], d[1], d[2], t, inv_rho, n_dot_d, dn_phi[0], dn_phi[1], dn_phi[2],
                         dn_theta[0], dn_theta[1], dn_theta[2]})
        row[l] = row[l - 1];
      continue;
    }
    const int i = batch.index[l];
    const float3 n_i = pass.normals[i];
    const float3 d_i = pass.particles[i].dir;
    set_lane(n, l, n_i);
    set_lane(d, l, d_i);
    t[l] = pass.offsets[i];
    inv_rho[l] = 1.0f / pass.density[i];
    n_dot_d[l] = dot(n_i, d_i);
    float3 phi{}, theta{};
    if (with_angles) {
      const RayFrame frame = ray_frame(d_i);
      const NormalAngles a = normal_angles(n_i, d_i, frame);
      if (angles) angles[i] = a;
      const float st = std::sin(a.theta), ct = std::cos(a.theta);
      const float sp = std::sin(a.phi), cp = std::cos(a.phi);
      phi = (st * cp) * frame.p - (st * sp) * d_i;
      theta = (ct * cp) * d_i + (ct * sp) * frame.p - st * frame.q;
    }
    set_lane(dn_phi, l, phi);
    set_lane(dn_theta, l, theta);
  }
}

namespace {

// A particle of each lane and one neighbour j: R = p_j - p_i, r = |R|, and the plane weights
// w_i = |n_i . u| F and w_j = |n_j . u| F with u = R / r and F the kernel, times |n_i . n_j| when
// weighting by the normals. `c` is n_i . n_j. `in_reach` marks the lanes with j != i and r within
// the radius.
struct LanePair {
  lane_float Rx, Ry, Rz, r, c, w_i, w_j;
  lane_int in_reach;
};

struct LaneParticles {
  lane_float px, py, pz, nx, ny, nz;
  lane_int own;
};

LANE_INLINE LaneParticles lane_particles(const CellBatch& batch, const PositionLanes& lanes) {
  return {lane_load(batch.x), lane_load(batch.y), lane_load(batch.z), lane_load(lanes.n[0]),
          lane_load(lanes.n[1]), lane_load(lanes.n[2]), lane_load(batch.index)};
}

LANE_INLINE LanePair lane_pair(const PositionPass& pass, bool use_dot_weight, const LaneParticles& i,
                               const NeighbourList& list, int e) {
  const NeighbourNormals& n_j = pass.neighbours;
  const float njx = n_j.x[e], njy = n_j.y[e], njz = n_j.z[e];
  LanePair pair;
  pair.Rx = list.x[e] - i.px;
  pair.Ry = list.y[e] - i.py;
  pair.Rz = list.z[e] - i.pz;
  const lane_float r2 = pair.Rx * pair.Rx + pair.Ry * pair.Ry + pair.Rz * pair.Rz;
  pair.r = lane_sqrt(r2);
  pair.in_reach = (i.own != list.index[e]) & ~pass.kernel.outside(r2) & (pair.r <= pass.radius);
  pair.c = i.nx * njx + i.ny * njy + i.nz * njz;
  lane_float F = pass.kernel(pair.r);
  if (use_dot_weight) F = F * lane_fabs(pair.c);
  const lane_float ux = pair.Rx / pair.r, uy = pair.Ry / pair.r, uz = pair.Rz / pair.r;
  pair.w_i = lane_fabs(i.nx * ux + i.ny * uy + i.nz * uz) * F;
  pair.w_j = lane_fabs(njx * ux + njy * uy + njz * uz) * F;
  return pair;
}

}  // namespace

LANE_KERNEL void exact_step_records(const PositionPass& pass, bool use_dot_weight, const PositionLanes& lanes,
                                    const CellBatch& batch, const NeighbourList& list, RecordLanes& records) {
  const LaneParticles i = lane_particles(batch, lanes);
  const lane_float dx = lane_load(lanes.d[0]), dy = lane_load(lanes.d[1]), dz = lane_load(lanes.d[2]);
  const lane_float t_i = lane_load(lanes.t), inv_rho_i = lane_load(lanes.inv_rho);
  const lane_float e = lane_load(lanes.n_dot_d);
  const float radius = pass.radius, beta = pass.beta;
  Minimum* rows[kLanes];
  int count[kLanes];
  for (int l = 0; l < kLanes; ++l) {
    rows[l] = records.row(l);
    count[l] = 0;
  }
  lane_float down{};
  for (int q = 0; q < batch.entry_count; ++q) {
    const int k = batch.entries[q];
    const LanePair pair = lane_pair(pass, use_dot_weight, i, list, k);
    const lane_int valid = pair.in_reach & ~(pair.r < 1e-6f);  // coincident particles have no direction
    const float njx = pass.neighbours.x[k], njy = pass.neighbours.y[k], njz = pass.neighbours.z[k];
    // First term, the plane of i; second term, the plane of j.
    const lane_float a = i.nx * pair.Rx + i.ny * pair.Ry + i.nz * pair.Rz;
    const lane_float t1 = a / e + t_i;
    lane_float s1 = -pair.w_i * e;
    const lane_float f = njx * dx + njy * dy + njz * dz;
    const lane_float t2 = (pair.Rx * njx + pair.Ry * njy + pair.Rz * njz) / f + t_i;
    lane_float s2 = pair.w_j * f;
    // Opposite normals: one-sided terms of strength beta; kind 1 rises above t, kind 2 falls below.
    const lane_int opposite = pair.c < 0.0f;
    s1 = opposite ? s1 * beta : s1;
    s2 = opposite ? s2 * beta : s2;
    // The strict tests drop planes nearly parallel to the ray, NaN and infinite t among them.
    const lane_int ok1 = valid & (radius > lane_fabs(t1 - t_i));
    const lane_int ok2 = valid & (radius > lane_fabs(t2 - t_i));
    const lane_float weight1 = lane_fabs(s1) * inv_rho_i;
    const lane_float weight2 = lane_fabs(s2) * pass.neighbours.inv_density[k];
    down = (ok1 & (~opposite | ~(s1 > 0.0f))) ? down + weight1 : down;
    down = (ok2 & (~opposite | ~(s2 > 0.0f))) ? down + weight2 : down;

    const lane_int any = ok1 | ok2;
    bool pushed = false;
    for (int l = 0; l < kLanes; ++l) pushed |= any[l] != 0;
    if (!pushed) continue;
    const lane_float jump1 = opposite ? weight1 : 2.0f * weight1;
    const lane_float jump2 = opposite ? weight2 : 2.0f * weight2;
    for (int l = 0; l < batch.count; ++l) {
      Minimum* row = rows[l];
      row[count[l]] = {t1[l], jump1[l]};
      count[l] += ok1[l] & 1;
      row[count[l]] = {t2[l], jump2[l]};
      count[l] += ok2[l] & 1;
    }
  }
  for (int l = 0; l < kLanes; ++l) records.count[l] = count[l];
  lane_store(records.down_weight, down);
}

LANE_KERNEL void gradient_lanes(const PositionPass& pass, bool use_dot_weight, const PositionLanes& lanes,
                                const CellBatch& batch, const NeighbourList& list, float gradient[3][kLanes]) {
  constexpr float eps = 1e-6f;
  const LaneParticles i = lane_particles(batch, lanes);
  const lane_float dx = lane_load(lanes.d[0]), dy = lane_load(lanes.d[1]), dz = lane_load(lanes.d[2]);
  const lane_float inv_rho_i = lane_load(lanes.inv_rho), minus_n_dot_d = -lane_load(lanes.n_dot_d);
  const lane_float phix = lane_load(lanes.dn_phi[0]), phiy = lane_load(lanes.dn_phi[1]),
                   phiz = lane_load(lanes.dn_phi[2]);
  const lane_float thetax = lane_load(lanes.dn_theta[0]), thetay = lane_load(lanes.dn_theta[1]),
                   thetaz = lane_load(lanes.dn_theta[2]);
  const float beta = pass.beta;
  lane_float G_t{}, G_phi{}, G_theta{};
  for (int q = 0; q < batch.entry_count; ++q) {
    const int k = batch.entries[q];
    const LanePair pair = lane_pair(pass, use_dot_weight, i, list, k);
    const float njx = pass.neighbours.x[k], njy = pass.neighbours.y[k], njz = pass.neighbours.z[k];
    const lane_float a = i.nx * pair.Rx + i.ny * pair.Ry + i.nz * pair.Rz;
    const lane_float b = -(njx * pair.Rx + njy * pair.Ry + njz * pair.Rz);
    const lane_float sa = lane_sqrt(a * a + eps);
    const lane_float sb = lane_sqrt(b * b + eps);
    lane_float ga = minus_n_dot_d * a * inv_rho_i * pair.w_i / sa;
    lane_float gb = (dx * njx + dy * njy + dz * njz) * b * pass.neighbours.inv_density[k] * pair.w_j / sb;
    // Opposite normals: only the penetrating side counts, with strength beta.
    const lane_int opposite = pair.c < 0.0f;
    ga = opposite ? ((a > 0.0f) ? ga * beta : lane_float{}) : ga;
    gb = opposite ? ((b > 0.0f) ? gb * beta : lane_float{}) : gb;
    const lane_int use = pair.in_reach;
    G_t = use ? gb + (ga + G_t) : G_t;
    const lane_float phi_R = phix * pair.Rx + phiy * pair.Ry + phiz * pair.Rz;
    const lane_float theta_R = thetax * pair.Rx + thetay * pair.Ry + thetaz * pair.Rz;
    G_phi = use ? G_phi + phi_R * a * inv_rho_i * pair.w_i / sa : G_phi;
    G_theta = use ? G_theta + theta_R * a * inv_rho_i * pair.w_i / sa : G_theta;
  }
  lane_store(gradient[0], G_t);
  lane_store(gradient[1], G_phi);
  lane_store(gradient[2], G_theta);
}

namespace {

template <bool use_dot_weight>
void run_exact_step(std::vector<float>& new_offsets, const CellIndex& cells, const NeighbourPass& pass, float omega) {
  UpdateParticlePosFunctor<use_dot_weight> functor;
  functor.omega = omega;
  iterate_particles_cells_into<UpdateParticlePosFunctor<use_dot_weight>, false>(functor, new_offsets, cells, pass);
}

template <bool use_dot_weight>
void run_gradient_pass(std::vector<std::pair<int, float3>>& results, const CellIndex& cells, const NeighbourPass& pass,
                       NormalAngles* angles) {
  ComputeGradientFunctor<use_dot_weight> functor;
  functor.angles = angles;
  iterate_particles_cells<ComputeGradientFunctor<use_dot_weight>, false>(functor, results, cells, pass);
}

}  // namespace

void update_particles(std::vector<float>& new_offsets, const CellIndex& cells, const NeighbourPass& pass, float omega) {
  std::cout << "  updating particle positions" << std::endl;
  if (pass.use_normal_dot_weight)
    run_exact_step<true>(new_offsets, cells, pass, omega);
  else
    run_exact_step<false>(new_offsets, cells, pass, omega);
}

void update_particles_gd(std::vector<float>& new_offsets, std::vector<float3>& normals, const CellIndex& cells,
                         const NeighbourPass& pass, float timestep) {
  std::cout << "  updating particle positions (gradient descent)" << std::endl;
  std::vector<std::pair<int, float3>> results;
  std::vector<NormalAngles> angles(cells.handles.size());
  if (pass.use_normal_dot_weight)
    run_gradient_pass<true>(results, cells, pass, angles.data());
  else
    run_gradient_pass<false>(results, cells, pass, angles.data());
  gradient_step(new_offsets, normals, pass, results, timestep, angles.data());
}

void gradient_step(std::vector<float>& new_offsets, std::vector<float3>& normals, const NeighbourPass& pass,
                   const std::vector<std::pair<int, float3>>& results, float timestep, const NormalAngles* angles) {
  const float radius = pass.radius;
  // Each result touches only its own particle's offset and normal.
  const long long count = static_cast<long long>(results.size());
#pragma omp parallel for schedule(static)
  for (long long s = 0; s < count; ++s) {
    const int i = results[s].first;
    const float3 g = results[s].second;
    float step = -g.x * timestep;
    if (std::fabs(step) > radius) step = std::copysign(radius, step);  // NaN passes unclamped
    new_offsets[i] = pass.offsets[i] + step;

    const float3 d = pass.particles[i].dir;
    const RayFrame frame = ray_frame(d);
    // The slots of invalid particles all stand for particle 0 and turn its normal again each time,
    // so its angles are taken afresh.
    const NormalAngles a = angles && i != 0 ? angles[i] : normal_angles(normals[i], d, frame);
    const float phi2 = a.phi - timestep * g.y;
    const float theta2 = a.theta - timestep * g.z;
    const float3 n2 = normal_from_angles(phi2, theta2, d, frame);
    if (dot(n2, d) > 0.0f) normals[i] = n2;  // a normal never turns away from its camera
  }
}
