#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <limits>
#include <tuple>
#include <vector>

#include "tests/support/particle_cloud.h"
#include "src/spatial/cell_index.h"
#include "src/spatial/morton.h"

TEST(Morton, RoundTripOverTheKeyRange) {
  for (uint64_t k = 0; k < 200000; ++k) {
    const unsigned long long key = cloud::mix(k) & invalid_cell_key;
    unsigned int x, y, z;
    decode(key, x, y, z);
    ASSERT_LT(x, 65536u);
    ASSERT_EQ(encode(x, y, z), key);
  }
  EXPECT_EQ(encode(65535, 65535, 65535), invalid_cell_key);
}

TEST(CellIndex, BoundingBoxCoversPositionsAndRayOrigins) {
  std::vector<Particle> particles = {cloud::particle({1, 2, 3}), cloud::particle({-1, 5, 0}),
                                     cloud::particle({std::numeric_limits<float>::quiet_NaN(), 100, 100}),
                                     cloud::particle({std::numeric_limits<float>::infinity(), -100, -100})};
  std::vector<float> offsets = {2.0f, -4.0f, 0.0f, 0.0f};
  float3 lo, hi;
  particles_bounding_box(&lo, &hi, particles, offsets);
  EXPECT_EQ(std::vector<float>({lo.x, lo.y, lo.z, hi.x, hi.y, hi.z}), std::vector<float>({-1, 2, -4, 1, 5, 5}));
  float3 only_max = {7, 7, 7};
  particles_bounding_box(nullptr, &only_max, particles, offsets);
  EXPECT_EQ(only_max.z, 5.0f);
  particles_bounding_box(nullptr, nullptr, particles, offsets);
}

TEST(CellIndex, KeysInBothForms) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  std::vector<Particle> particles = {cloud::particle({0.5f, 1.5f, 2.5f}), cloud::particle({nan, 0, 0}),
                                     cloud::particle({0.5f, 0.5f, 0.5f})};
  std::vector<float> offsets = {1.0f, 0.0f, nan};
  const float3 origin = {0, 0, 0};
  std::vector<unsigned long long> keys;
  compute_cell_keys_from_pos(keys, particles, origin, 1.0f);
  EXPECT_EQ(keys, (std::vector<unsigned long long>{encode(0, 1, 2), invalid_cell_key, encode(0, 0, 0)}));
  std::vector<unsigned int> handles = {2, 0, 1};
  compute_cell_keys(keys, handles, particles, offsets, origin, 1.0f);
  // Handle order; the first particle moved one cell up along its ray; a NaN offset is invalid.
  EXPECT_EQ(keys, (std::vector<unsigned long long>{invalid_cell_key, encode(0, 1, 3), invalid_cell_key}));
  // A position below the grid origin wraps to coordinate 65535.
  compute_cell_keys_from_pos(keys, {cloud::particle({-0.5f, 0.0f, 0.0f})}, origin, 1.0f);
  EXPECT_EQ(keys[0], encode(65535, 0, 0));
}

TEST(CellIndex, TablesAndStatistics) {
  using Keys = std::vector<unsigned long long>;
  using Starts = std::vector<unsigned int>;
  // Sorted keys; then cell keys, cell starts, prefix sums of cell sizes, longest cell, mean cell length.
  const std::vector<std::tuple<Keys, Keys, Starts, std::vector<int>, int, float>> cases = {
      {Keys(5, 42), {42}, {0}, {5}, 5, 5.0f},
      {{7}, {7}, {0}, {1}, 1, 1.0f},
      {{1, 3, 3, 5, 5, 5, invalid_cell_key, invalid_cell_key}, {1, 3, 5, invalid_cell_key}, {0, 1, 3, 6},
       {1, 3, 6, 8}, 3, 2.0f}};
  for (auto [keys, cell_keys, cell_starts, prefix, max_length, average] : cases) {
    Keys out_keys = {9, 9, 9};  // stale contents are replaced
    Starts out_starts;
    std::vector<int> out_prefix;
    create_cell_start_index_table(out_keys, out_starts, keys);
    create_cell_size_prefix_sum(out_prefix, out_starts, static_cast<int>(keys.size()));
    EXPECT_EQ(out_keys, cell_keys);
    EXPECT_EQ(out_starts, cell_starts);
    EXPECT_EQ(out_prefix, prefix);
    int out_max = 0;
    float out_average = 0.0f;
    cell_length_statistics(&out_max, &out_average, out_keys, out_starts, keys);
    EXPECT_EQ(out_max, max_length);
    EXPECT_EQ(out_average, average);
  }
}

TEST(CellIndex, SortIsStableForAnyThreadCount) {
  std::vector<unsigned long long> reference_keys(20000);
  for (size_t k = 0; k < reference_keys.size(); ++k) reference_keys[k] = cloud::mix(k) % 37;
  std::vector<unsigned int> expected;
  for (int threads : {1, 2, 4}) {
    omp_set_num_threads(threads);
    std::vector<unsigned long long> keys = reference_keys;
    std::vector<unsigned int> handles(keys.size());
    for (size_t k = 0; k < handles.size(); ++k) handles[k] = static_cast<unsigned int>(k);
    sort_particle_handles(handles, keys);
    for (size_t k = 1; k < keys.size(); ++k) {
      ASSERT_LE(keys[k - 1], keys[k]);
      if (keys[k - 1] == keys[k]) {
        ASSERT_LT(handles[k - 1], handles[k]);
      }
    }
    if (expected.empty()) expected = handles;
    EXPECT_EQ(handles, expected);
  }
  omp_set_num_threads(omp_get_num_procs());
  std::vector<unsigned int> empty_handles;
  std::vector<unsigned long long> empty_keys;
  sort_particle_handles(empty_handles, empty_keys);
}

TEST(CellIndex, ReorderMovesAllThreeArraysAndResetsHandles) {
  // Both forms, on a permutation with a fixed point and cycles of length 2 and 4.
  const std::vector<unsigned int> permutation = {2, 0, 1, 3, 7, 4, 5, 6, 9, 8};
  for (bool in_place : {false, true}) {
    cloud::ParticleSet s;
    for (int k = 0; k < 10; ++k) s.add(cloud::particle({float(k), 0, 0}), float(k), {0, float(k), 0});
    std::vector<unsigned int> handles = permutation;
    if (in_place)
      reorder_in_place(s.particles, s.offsets, s.normals, handles);
    else
      reorder_particles(s.particles, s.offsets, s.normals, handles);
    for (int k = 0; k < 10; ++k) {
      EXPECT_EQ(s.particles[k].pos.x, static_cast<float>(permutation[k]));
      EXPECT_EQ(s.offsets[k], static_cast<float>(permutation[k]));
      EXPECT_EQ(s.normals[k].y, static_cast<float>(permutation[k]));
      EXPECT_EQ(handles[k], static_cast<unsigned int>(k));
    }
  }
}
