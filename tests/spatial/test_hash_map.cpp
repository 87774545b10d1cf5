#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "tests/support/particle_cloud.h"
#include "src/spatial/hash_map.h"

namespace {

std::vector<unsigned int> values_for(size_t n) {
  std::vector<unsigned int> values(n);
  for (size_t k = 0; k < n; ++k) values[k] = static_cast<unsigned int>(1000 + k);
  return values;
}

void expect_all_found(const HashMap& map, const std::vector<unsigned long long>& keys) {
  for (size_t k = 0; k < keys.size(); ++k) {
    ASSERT_EQ(hash_map_find(map, keys[k]), 1000 + k) << "key " << keys[k];
    ASSERT_EQ(hash_map_find_bounded(map, keys[k]), 1000 + k) << "key " << keys[k];
  }
}

}  // namespace

TEST(HashMap, WithoutCollisionsEveryKeySitsAtItsHomeSlot) {
  const std::vector<unsigned long long> keys = {100, 101, 102, 103, 104, 105, 106, 107};
  const HashMap map = create_hash_map(keys, values_for(8), 0.8f);
  EXPECT_EQ(map.size, 10u);
  EXPECT_EQ(map.hash_offsets[0], 0u);
  EXPECT_EQ(map.max_age, 1u);
  for (size_t k = 0; k < keys.size(); ++k) {
    EXPECT_EQ(map.keys[keys[k] % 10], keys[k]);
    EXPECT_EQ(map.values[keys[k] % 10], 1000 + k);
    EXPECT_EQ(map.ages[keys[k] % 10], 1u);
  }
  expect_all_found(map, keys);
  // 110 has the taken home slot of 100; 108 has a free one.
  EXPECT_EQ(hash_map_find(map, 110), hash_map_not_found);
  EXPECT_EQ(hash_map_find_bounded(map, 110), hash_map_not_found);
  EXPECT_EQ(hash_map_find_bounded(map, 108), hash_map_not_found);
  EXPECT_EQ(hash_map_find(map, 108), hash_map_not_found);
}

TEST(HashMap, EveryCallDrawsTheSameOffsets) {
  const HashMap a = create_hash_map({1, 2, 3}, values_for(3), 0.8f);
  const HashMap b = create_hash_map({7, 8, 9, 10, 11}, values_for(5), 0.8f);
  EXPECT_EQ(a.hash_offsets, b.hash_offsets);
}

TEST(HashMap, CollidingKeysAreEvictedAndStillFound) {
  // All keys share one home slot and the same probe sequence, so they must take up one offset each;
  // most attempts fail for lack of distinct slots and the build restarts with new offsets.
  std::vector<unsigned long long> keys;
  const unsigned long long size = static_cast<unsigned long long>(30 / 0.8f);
  for (unsigned long long k = 0; k < 30; ++k) keys.push_back((k + 1) * size);
  const HashMap map = create_hash_map(keys, values_for(keys.size()), 0.8f);
  const HashMap first_attempt = create_hash_map({1}, values_for(1), 0.8f);
  EXPECT_EQ(map.size, size);
  EXPECT_GT(map.max_age, 20u);
  EXPECT_EQ(map.ages[0], map.max_age);
  EXPECT_NE(map.hash_offsets, first_attempt.hash_offsets) << "the key set should have forced a restart";
  expect_all_found(map, keys);
  EXPECT_EQ(hash_map_find_bounded(map, 31 * size), hash_map_not_found);
  EXPECT_EQ(hash_map_find(map, 31 * size), hash_map_not_found);
}

TEST(HashMap, DenseRandomKeySet) {
  std::vector<unsigned long long> keys;
  std::set<unsigned long long> seen;
  for (uint64_t k = 0; keys.size() < 20000; ++k) {
    const unsigned long long key = cloud::mix(k) % 60000;  // dense and clustered low keys
    if (seen.insert(key).second) keys.push_back(key);
  }
  const HashMap map = create_hash_map(keys, values_for(keys.size()), 0.8f);
  EXPECT_EQ(map.size, 25000u);
  EXPECT_GT(map.max_age, 1u);
  expect_all_found(map, keys);
  int misses = 0;
  for (unsigned long long key = 0; key < 60000; ++key)
    if (!seen.count(key)) misses += hash_map_find_bounded(map, key) == hash_map_not_found;
  EXPECT_EQ(misses, 60000 - 20000);
}
