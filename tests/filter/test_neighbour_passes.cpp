#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <vector>

#include "src/filter/density.h"
#include "src/filter/normals.h"
#include "src/filter/position_update.h"
#include "src/spatial/cell_index.h"
#include "src/spatial/iterate_particles_cells.h"
#include "src/spatial/morton.h"
#include "tests/support/particle_cloud.h"

namespace {

// The cell index of a particle set as a filter step builds it (handles from index order).
CellIndex build_index(const cloud::ParticleSet& set, float radius) {
  CellIndex index = cell_grid(set.particles, set.offsets, radius);
  rebuild_cell_index(index, set.particles, set.offsets);
  return index;
}

NeighbourPass pass_of(const cloud::ParticleSet& set, const std::vector<float>& density, float radius, int stride = 1,
                      float alpha = 0.01f, float beta = 0.5f) {
  return {.particles = set.particles.data(),
          .offsets = set.offsets.data(),
          .normals = set.normals.data(),
          .density = density.empty() ? nullptr : density.data(),
          .radius = radius,
          .stride = stride,
          .alpha = alpha,
          .beta = beta};
}

// A pass in the form that writes each value to its particle, with `functor` as every thread's copy.
template <typename Functor, bool with_self>
std::vector<typename Functor::Out_t> run_pass(const cloud::ParticleSet& set, const CellIndex& index, float radius,
                                              const std::vector<float>& density, int stride, float alpha = 0.01f,
                                              float beta = 0.5f, Functor functor = {}) {
  std::vector<typename Functor::Out_t> out(set.size());
  iterate_particles_cells_into<Functor, with_self>(functor, out, index,
                                                   pass_of(set, density, radius, stride, alpha, beta));
  return out;
}

// Runs a functor for particle i alone against `list`, with every entry handed over.
template <typename Functor>
typename Functor::Out_t run_one(Functor& functor, const cloud::ParticleSet& set, int i, const NeighbourList& list) {
  CellBatch batch;
  batch.count = 1;
  const float3 p = particle_position(set.particles[i], set.offsets[i]);
  bool listed = false;
  for (int e = 0; e < list.size(); ++e) listed |= list.index[e] == i;
  for (int l = 0; l < kLanes; ++l) {
    batch.index[l] = i;
    batch.x[l] = p.x;
    batch.y[l] = p.y;
    batch.z[l] = p.z;
    batch.self_listed[l] = listed;
  }
  std::vector<int> entries(list.size());
  for (int e = 0; e < list.size(); ++e) entries[e] = e;
  batch.entries = entries.data();
  batch.entry_count = list.size();
  functor.gather(list);
  typename Functor::Out_t out[kLanes];
  functor.run(batch, list, out);
  return out[0];
}

// Reference: each particle alone against the neighbour list a pass must deliver (the 27 cells in
// offset order, each in handle order, every stride-th, itself included where sampled), collected
// from the handles by key, with each cell's view.
template <typename Functor>
std::vector<typename Functor::Out_t> run_reference(const cloud::ParticleSet& set, const CellIndex& index, float radius,
                                                   const std::vector<float>& density, int stride, Functor functor) {
  std::map<unsigned long long, std::vector<unsigned int>> cells;
  for (size_t k = 0; k < set.size(); ++k) cells[index.keys[k]].push_back(index.handles[k]);
  functor.setup(pass_of(set, density, radius, stride));
  std::vector<typename Functor::Out_t> out(set.size());
  for (size_t k = 0; k < set.size(); ++k) {
    const int i = static_cast<int>(index.handles[k]);
    unsigned int x, y, z;
    decode(index.keys[k], x, y, z);
    if (x == 65535 && y == 65535 && z == 65535) continue;
    NeighbourList list;
    for (int m = 0; m < 27; ++m) {
      const auto cell = cells.find(encode(x + (m % 3 - 1LL), y + (m / 3 % 3 - 1LL), z + (m / 9 - 1LL)));
      if (cell == cells.end()) continue;
      const int begin = list.size();
      int view = set.particles[cell->second[0]].camera_index;
      for (size_t b = 0; b < cell->second.size(); ++b) {
        const unsigned int j = cell->second[b];
        if (set.particles[j].camera_index != view) view = -1;
        if (b % stride == 0) list.push(static_cast<int>(j), particle_position(set.particles[j], set.offsets[j]));
      }
      list.runs[list.run_count++] = {begin, list.size(), view};
    }
    out[i] = run_one(functor, set, i, list);
  }
  return out;
}

bool same_bits(float a, float b) { return std::memcmp(&a, &b, sizeof a) == 0; }
bool same_bits(float3 a, float3 b) { return std::memcmp(&a, &b, sizeof a) == 0; }

template <typename Functor, bool with_self>
void expect_pass_as_reference(const cloud::ParticleSet& set, const CellIndex& index, float radius,
                              const std::vector<float>& density, int stride, Functor functor = {}) {
  const auto pass = run_pass<Functor, with_self>(set, index, radius, density, stride, 0.01f, 0.5f, functor);
  const auto reference = run_reference<Functor>(set, index, radius, density, stride, functor);
  for (size_t k = 0; k < set.size(); ++k) ASSERT_TRUE(same_bits(pass[k], reference[k])) << "particle " << k;
}

}  // namespace

// Every functor gets exactly the pairs of a brute-force scan, in the same order, whatever the lane,
// the batch and the neighbours left out by distance: on sparse cells and on cells of about fifty
// particles, with stride 1 and a stride that thins the runs.
TEST(NeighbourPasses, MatchBruteForceForEveryFunctor) {
  for (auto [count, radius] : {std::pair{1200, 0.12f}, std::pair{2500, 0.3f}}) {
    const cloud::ParticleSet set = cloud::random_cloud(count, 1.0f, 7);
    const CellIndex index = build_index(set, radius);
    ComputeParticleSupportFunctor support;
    support.min_support = 1.5f;
    UpdateParticlePosFunctor<true> relaxed;
    relaxed.omega = 0.75f;
    for (int stride : {1, 3}) {
      SCOPED_TRACE(testing::Message() << count << " particles, stride " << stride);
      const auto density = run_pass<ComputeDensityFunctor, true>(set, index, radius, {}, stride);
      expect_pass_as_reference<ComputeDensityFunctor, true>(set, index, radius, {}, stride);
      expect_pass_as_reference<ComputeParticleSupportFunctor, true>(set, index, radius, {}, stride, support);
      expect_pass_as_reference<ComputeNormalsFunctor<true, false>, true>(set, index, radius, {}, stride);
      expect_pass_as_reference<ComputeNormalsFunctor<false, true>, true>(set, index, radius, {}, stride);
      expect_pass_as_reference<ComputeGradientFunctor<true>, false>(set, index, radius, density, stride);
      expect_pass_as_reference<ComputeGradientFunctor<false>, false>(set, index, radius, density, stride);
      expect_pass_as_reference<UpdateParticlePosFunctor<true>, false>(set, index, radius, density, stride, relaxed);
      expect_pass_as_reference<UpdateParticlePosFunctor<false>, false>(set, index, radius, density, stride);
    }
  }
}

// With stride 1 the cells hold every particle within the radius: the density is the plain sum of
// the kernel over all particles, never below the particle's own term.
TEST(NeighbourPasses, DensityEqualsTheSumOverAllParticles) {
  const cloud::ParticleSet set = cloud::random_cloud(800, 1.0f, 11);
  const auto density = run_pass<ComputeDensityFunctor, true>(set, build_index(set, 0.12f), 0.12f, {}, 1);
  for (size_t i = 0; i < set.size(); ++i) {
    double sum = 0.0;
    const float3 p_i = particle_position(set.particles[i], set.offsets[i]);
    for (size_t j = 0; j < set.size(); ++j)
      sum += W(length(particle_position(set.particles[j], set.offsets[j]) - p_i), 0.12f);
    ASSERT_NEAR(density[i], sum, 1e-5 * sum);
    ASSERT_GE(density[i], W(0.0f, 0.12f));
  }
}

TEST(NeighbourPasses, SelfPairOnceForEveryStride) {
  // Five particles at one place: with stride 3 the run is sampled at positions 0 and 3, and the
  // particles at positions 1, 2 and 4 still meet themselves once.
  cloud::ParticleSet set = cloud::random_cloud(5, 0.01f, 3);
  for (auto& p : set.particles) p.pos = {0.5f, 0.5f, 0.5f};
  for (auto& t : set.offsets) t = 0.0f;
  const CellIndex index = build_index(set, 0.12f);
  const auto density = run_pass<ComputeDensityFunctor, true>(set, index, 0.12f, {}, 3);
  const float w0 = W(0.0f, 0.12f);
  for (size_t k = 0; k < 5; ++k)
    EXPECT_EQ(density[index.handles[k]], k % 3 == 0 ? w0 + w0 : w0 + w0 + w0) << "run position " << k;
}

// Invalid particles keep their slots at (0, zero), and the merge in slot order leaves that zero on
// particle 0; the form that writes values directly leaves the same.
TEST(NeighbourPasses, InvalidParticlesKeepTheirSlotEmpty) {
  cloud::ParticleSet set = cloud::random_cloud(50, 1.0f, 5);
  set.offsets[7] = std::nanf("");
  const CellIndex index = build_index(set, 0.12f);
  ComputeDensityFunctor functor;
  std::vector<std::pair<int, float>> results;
  iterate_particles_cells<ComputeDensityFunctor, true>(functor, results, index, pass_of(set, {}, 0.12f));
  ASSERT_EQ(results.size(), 50u);
  EXPECT_EQ(results.back(), (std::pair<int, float>{0, 0.0f}));
  for (size_t s = 0; s + 1 < results.size(); ++s) EXPECT_NE(results[s].first, 7);
  // In slot order, as one thread merges; threads that split the slots may let either write win.
  std::vector<float> merged(50, -1.0f);
  for (const auto& [i, value] : results) merged[i] = value;
  const std::vector<float> direct = run_pass<ComputeDensityFunctor, true>(set, index, 0.12f, {}, 1);
  EXPECT_EQ(merged[0], 0.0f);
  for (size_t i = 0; i < 50; ++i) EXPECT_EQ(direct[i], i == 7 ? 0.0f : merged[i]) << i;
}

TEST(NeighbourPassesDeathTest, MissingCellEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const cloud::ParticleSet set = cloud::random_cloud(40, 1.0f, 9);
  CellIndex index = build_index(set, 0.12f);
  std::vector<unsigned long long> fewer(index.cell_keys.begin() + 1, index.cell_keys.end());
  std::vector<unsigned int> starts(index.cell_starts.begin() + 1, index.cell_starts.end());
  index.cell_map = create_hash_map(fewer, starts, 0.8f);
  const std::string expected = "cell_start is invalid!  key " + std::to_string(index.cell_keys[0]) + "   value 4294967295";
  EXPECT_DEATH((run_pass<ComputeDensityFunctor, true>(set, index, 0.12f, {}, 1)), expected);
}

// Piles of one view's particles at one place (as at a camera centre) are skipped whole by the
// support pass; the values stay those of the full scan, also next to mixed cells.
TEST(NeighbourPasses, SupportSkipsPilesOfOneViewWithoutChangingValues) {
  cloud::ParticleSet set = cloud::random_cloud(600, 1.0f, 11);
  for (int k = 0; k < 300; ++k)  // two piles in neighbouring cells
    set.add(cloud::particle({k < 200 ? 0.5f : 0.65f, 0.5f, 0.5f}, set.particles[k].dir, k < 200 ? 1 : 2), 0.0f,
            set.normals[k]);
  ComputeParticleSupportFunctor support;
  support.min_support = 1.5f;
  expect_pass_as_reference<ComputeParticleSupportFunctor, true>(set, build_index(set, 0.12f), 0.12f, {}, 1, support);
}

// ---- worked cases of the functors ----

namespace {

Particle ray_particle(float3 pos, float3 dir, int camera) { return cloud::particle(pos, dir, camera, 0.05f); }

cloud::ParticleSet two_particles(float3 second_pos, float3 second_normal) {
  cloud::ParticleSet set;
  set.particles = {ray_particle({0, 0, 0}, {0, 0, 1}, 0), ray_particle(second_pos, {0, 0, 1}, 1)};
  set.offsets = {0.0f, 0.0f};
  set.normals = {{0, 0, 1}, second_normal};
  return set;
}

// The value a pass with radius 1 gives particle 0, after a density pass.
template <typename Functor>
typename Functor::Out_t first_of_pass(const cloud::ParticleSet& set, float alpha, float beta = 0.5f,
                                      Functor functor = {}) {
  const CellIndex index = build_index(set, 1.0f);
  const auto density = run_pass<ComputeDensityFunctor, true>(set, index, 1.0f, {}, 1);
  return run_pass<Functor, false>(set, index, 1.0f, density, 1, alpha, beta, functor)[0];
}

}  // namespace

// The pass-level kernel gives W's bits, and its squared-distance test agrees with the square root
// at the boundary.
TEST(ParticleFunctors, KernelValues) {
  const SphKernel kernel(0.37f);
  for (float r = 0.0f; r < 0.4f; r += 0.0137f) EXPECT_TRUE(same_bits(kernel(r), W(r, 0.37f)));
  EXPECT_LE(std::sqrt(kernel.r2_limit), 0.37f);
  EXPECT_GT(std::sqrt(std::nextafter(kernel.r2_limit, 1.0f)), 0.37f);
}

// Support comes from other views, weighted by normals and footprint, and is counted only until it
// passes the level asked for.
TEST(ParticleFunctors, SupportByViewsNormalsAndFootprint) {
  std::vector<float> support;
  bool weight = false;
  auto support_of_i = [&](float3 pos_j, float3 normal_j) {
    cloud::ParticleSet set = two_particles(pos_j, normal_j);
    compute_particle_support(support, set.particles, set.offsets, set.normals, 0.1f, 10.0f, weight);
    return support[0];
  };
  cloud::ParticleSet pile;  // seven particles at one place, 0 and 6 of one view
  for (int k = 0; k < 7; ++k) pile.add(ray_particle({0.3f, 0.3f, 0.3f}, {0, 0, 1}, k % 6), 0.0f, {0, 0, 1});
  for (bool dot_weight : {false, true}) {
    weight = dot_weight;
    // j at a right angle: 1 minus the plane distance without the weight, nothing with it.
    EXPECT_EQ(support_of_i({0.01f, 0, 0}, {0, 1, 0}), weight ? 0.0f : 1.0f);
    EXPECT_EQ(support_of_i({0.01f, 0, 0}, {0, 0, -1}), 0.0f);          // anti-parallel
    EXPECT_EQ(support_of_i({0.06f, 0, 0}, {0, 0, 1}), 0.0f);           // beyond j's footprint of 0.05
    EXPECT_FLOAT_EQ(support_of_i({0.03f, 0, 0.01f}, {0, 0, 1}), 0.8f);  // 0.2 footprints off j's plane
    compute_particle_support(support, pile.particles, pile.offsets, pile.normals, 0.1f, 3.0f, weight);
    EXPECT_EQ(support, std::vector<float>(7, 4.0f));
    compute_particle_support(support, pile.particles, pile.offsets, pile.normals, 0.1f, 100.0f, weight);
    EXPECT_EQ(support, (std::vector<float>{5, 6, 6, 6, 6, 6, 5}));
  }
}

TEST(ParticleFunctors, NormalsNeedEightVisitsAndFaceTheCamera) {
  // A flat patch in the plane x + z = 1 seen along -z: 7 particles keep their normals, 8 get the plane
  // normal turned towards the camera; opposite normals count as visits only.
  for (int count : {7, 8, 9}) {
    cloud::ParticleSet set;
    for (int k = 0; k < count; ++k) {
      const float x = 0.05f * (k % 3), y = 0.05f * (k / 3);
      set.add(ray_particle({x, y, 1.0f - x}, {0, 0, -1}, 0), 0.0f, k == 4 ? float3{0, 0, 1} : float3{0, 0, -1});
    }
    const CellIndex index = build_index(set, 0.5f);
    const auto normals = run_pass<ComputeNormalsFunctor<true, false>, true>(set, index, 0.5f, {}, 1);
    for (int k = 0; k < count; ++k) {
      if (count < 8) {
        EXPECT_TRUE(same_bits(normals[k], set.normals[k]));
      } else if (k != 4) {
        EXPECT_NEAR(normals[k].x, -0.70710678f, 1e-5f);
        EXPECT_NEAR(normals[k].z, -0.70710678f, 1e-5f);
        EXPECT_GT(dot(normals[k], set.particles[k].dir), 0.0f);
      }
    }
  }
  // A zero matrix still gives a unit vector, facing the camera; NaN falls back to init_normal.
  const Particle p = ray_particle({0, 0, 0}, {0.6f, 0.0f, 0.8f}, 0);
  const float zeros[6] = {};
  const float3 e = normal_from_moments(zeros, p);
  EXPECT_NEAR(length(e), 1.0f, 1e-6f);
  EXPECT_GT(dot(e, p.dir), 0.0f);
  const float nans[6] = {std::nanf(""), 0, 1, 0, 0, 1};
  EXPECT_TRUE(same_bits(normal_from_moments(nans, p), p.init_normal));
}

namespace {

// A term of the exact step's energy: kind 1 rises by `weight` above t, 2 falls by it below, 3 both.
struct Term {
  float t, weight;
  int kind;
};

// The terms' records in their order, and the slope left of all of them.
std::pair<std::vector<Minimum>, float> records_of(const std::vector<Term>& terms) {
  std::vector<Minimum> records;
  float down = 0.0f;
  for (const Term& term : terms) {
    records.push_back({term.t, term.kind == 3 ? 2.0f * term.weight : term.weight});
    if (term.kind & 2) down += term.weight;
  }
  return {records, -down};
}

float minimiser_of(const std::vector<Term>& terms) {
  auto [records, slope] = records_of(terms);
  return records_minimiser(records.data(), static_cast<int>(records.size()), slope);
}

}  // namespace

TEST(ParticleFunctors, WeightedMedianTakesTheRightEndOfAFlatMinimum) {
  EXPECT_EQ(minimiser_of({{1.0f, 1.0f, 3}, {0.0f, 1.0f, 3}}), 1.0f);
  EXPECT_EQ(minimiser_of({{2.0f, 1.0f, 3}, {0.0f, 3.0f, 3}, {1.0f, 1.0f, 3}}), 0.0f);
  // One-sided terms: only slopes down below 1 and up above 3; flat in between.
  EXPECT_EQ(minimiser_of({{1.0f, 2.0f, 2}, {3.0f, 2.0f, 1}, {0.0f, 0.0f, 3}, {5.0f, 0.0f, 1}}), 3.0f);
  // A NaN weight or t (a degenerate neighbour) still ends, by either form, at one of the records.
  MinimiserScratch nan_scratch;
  for (int bad = 0; bad < 2; ++bad) {
    std::vector<Term> terms;
    for (int k = 0; k < 40; ++k) terms.push_back({0.1f * k, 1.0f, 3});
    (bad ? terms[7].t : terms[7].weight) = std::nanf("");
    auto [records, slope] = records_of(terms);
    const float t = exact_step_minimiser(records.data(), 40, slope, nan_scratch);
    EXPECT_TRUE(std::isnan(t) || (t >= 0.0f && t <= 3.9f));
  }

  // Random term sets, with many equal t (every other set) or none: the bisection against
  // sort-and-scan, and the sorted form, which gives the bisection's bits or declines, leaving the
  // records as they were; it declines where a probe splits equal t or a slope is within rounding
  // of 0.
  MinimiserScratch scratch;
  int decided = 0;
  for (uint64_t trial = 0; trial < 400; ++trial) {
    const int m = 2 + static_cast<int>(cloud::mix(trial) % 300);
    std::vector<Term> terms;
    for (int k = 0; k < m; ++k) {
      const uint64_t id = trial * 1000 + k;
      const float u = cloud::uniform01(1, id);
      terms.push_back({trial % 2 ? std::floor(u * 16.0f) / 4.0f : u - 0.5f,
                       std::floor(cloud::uniform01(2, id) * 8.0f) / 8.0f, 1 + static_cast<int>(cloud::mix(id) % 3)});
    }
    std::vector<Term> sorted = terms;
    std::stable_sort(sorted.begin(), sorted.end(), [](const Term& a, const Term& b) { return a.t < b.t; });
    auto [sorted_records, slope] = records_of(sorted);
    float expected = sorted[0].t;
    for (int k = 0; k + 1 < m; ++k)
      if ((slope += sorted_records[k].jump) <= 0.0f) expected = sorted[k + 1].t;
    auto [records, left_slope] = records_of(terms);
    const std::vector<Minimum> copy = records;
    float fast = 0.0f;
    const bool ok = sorted_minimiser(records.data(), m, left_slope, scratch, fast);
    ASSERT_EQ(std::memcmp(records.data(), copy.data(), m * sizeof(Minimum)), 0) << "trial " << trial;
    const float bisected = records_minimiser(records.data(), m, left_slope);
    ASSERT_EQ(bisected, expected) << "trial " << trial;
    ASSERT_TRUE(!ok || same_bits(fast, bisected)) << "trial " << trial;
    decided += ok && trial % 2 == 0;
  }
  EXPECT_GT(decided, 150);
}

TEST(ParticleFunctors, ExactStepOnACommonPlane) {
  // j lies 0.2 above i's tangent plane and both face the camera along +z: both terms put i at 0.2.
  cloud::ParticleSet set = two_particles({0.3f, 0, 0.2f}, {0, 0, 1});
  for (float omega : {1.0f, 0.5f}) {
    UpdateParticlePosFunctor<true> exact;
    exact.omega = omega;
    EXPECT_EQ(first_of_pass(set, 0.001f, 0.5f, exact), 0.2f * omega);
  }
  // A strong data term keeps the particle on its measurement.
  EXPECT_EQ(first_of_pass<UpdateParticlePosFunctor<true>>(set, 100.0f), 0.0f);
  // With beta 0, opposite normals give weightless records, and only the data term is left.
  set.normals[1] = {0, 0, -1};
  EXPECT_EQ(first_of_pass<UpdateParticlePosFunctor<false>>(set, 0.001f, 0.0f), 0.0f);
  // Alone, a particle keeps its offset and feels no gradient.
  set = two_particles({5, 5, 5}, {0, 0, 1});
  set.offsets[0] = 0.25f;
  EXPECT_EQ(first_of_pass<UpdateParticlePosFunctor<true>>(set, 0.01f), 0.25f);
  EXPECT_EQ(first_of_pass<ComputeGradientFunctor<true>>(set, 0.01f).y, 0.0f);
}

namespace {

// Runs one functor for particle 0 of a two-particle set against particle 1 alone.
template <typename Functor>
typename Functor::Out_t one_pair(Functor& functor, const cloud::ParticleSet& set, const std::vector<float>& density) {
  functor.setup(pass_of(set, density, 1.0f, 1, 0.0f, 1.0f));
  NeighbourList list;
  list.push(1, set.particles[1].pos);
  list.runs[list.run_count++] = {0, 1, -1};
  return run_one(functor, set, 0, list);
}

}  // namespace

TEST(ParticleFunctors, CollisionTermIsOneSidedAndParallelPlanesGiveNoRecord) {
  // Opposite normals: j below i's plane is on the safe side and exerts nothing; above it, it pushes.
  for (float height : {-0.2f, 0.2f}) {
    const cloud::ParticleSet set = two_particles({0.3f, 0, height}, {0, 0, -1});
    ComputeGradientFunctor<false> gradient;
    const float3 g = one_pair(gradient, set, {1.0f, 1.0f});
    if (height < 0.0f) {
      EXPECT_EQ(g.x, 0.0f);
    } else {
      EXPECT_LT(g.x, 0.0f);  // the energy falls as i moves up towards j
    }
    // Both records one-sided: each rises by its weight alone, and both slope down below their t
    // (the third record is the data term, weightless with alpha 0).
    UpdateParticlePosFunctor<false> exact;
    one_pair(exact, set, {1.0f, 1.0f});
    ASSERT_EQ(exact.records.count[0], 2);
    const Minimum* row = exact.records.row(0);
    EXPECT_FLOAT_EQ(exact.records.down_weight[0], row[0].jump + row[1].jump + row[2].jump);
  }
  // n_i at a right angle to d_i: one record besides the data term at t = 0.
  cloud::ParticleSet set = two_particles({0.3f, 0, 0.2f}, {0, 0, 1});
  set.normals[0] = {1, 0, 0};
  UpdateParticlePosFunctor<false> functor;
  one_pair(functor, set, {1.0f, 1.0f});
  ASSERT_EQ(functor.records.count[0], 1);
  EXPECT_FLOAT_EQ(std::max(functor.records.row(0)[0].t, functor.records.row(0)[1].t), 0.2f);
}

TEST(ParticleFunctors, GradientStepIsClampedAndNormalsKeepFacingTheCamera) {
  const float3 d = {0.6f, 0.0f, 0.8f};
  std::vector<Particle> particles = {ray_particle({0, 0, 0}, d, 0), ray_particle({1, 0, 0}, d, 0)};
  std::vector<float> offsets = {0.5f, 0.5f};
  std::vector<float> new_offsets(2);
  std::vector<float3> normals = {d, d};
  // Particle 0: a huge step, cut to the radius; a small turn. Particle 1: a turn past the right angle.
  std::vector<std::pair<int, float3>> results = {{0, {-1000.0f, 0.0f, 20.0f}}, {1, {1.0f, 0.0f, -400.0f}}};
  const NeighbourPass pass{.particles = particles.data(), .offsets = offsets.data(), .radius = 0.1f};
  gradient_step(new_offsets, normals, pass, results, 0.01f);
  EXPECT_EQ(new_offsets[0], 0.5f + 0.1f);
  EXPECT_EQ(new_offsets[1], 0.5f - 0.01f);
  EXPECT_NEAR(dot(normals[0], d), std::cos(0.2f), 1e-5f);  // turned by 0.2 rad about the ray frame
  EXPECT_TRUE(same_bits(normals[1], d));
}
