#include <gtest/gtest.h>

#include <set>
#include <vector>

#include "tests/support/particle_cloud.h"
#include "src/spatial/hash_map.h"

namespace {

// The map of keys[k] to 1000 + k: every key is found by both lookups, each of `others` by neither.
HashMap expect_map_of(const std::vector<unsigned long long>& keys, const std::vector<unsigned long long>& others) {
  std::vector<unsigned int> values(keys.size());
  for (size_t k = 0; k < keys.size(); ++k) values[k] = static_cast<unsigned int>(1000 + k);
  const HashMap map = create_hash_map(keys, values, 0.8f);
  for (size_t k = 0; k < keys.size(); ++k) {
    EXPECT_EQ(hash_map_find(map, keys[k]), 1000 + k) << "key " << keys[k];
    EXPECT_EQ(hash_map_find_bounded(map, keys[k]), 1000 + k) << "key " << keys[k];
  }
  for (unsigned long long key : others) {
    EXPECT_EQ(hash_map_find(map, key), hash_map_not_found) << "key " << key;
    EXPECT_EQ(hash_map_find_bounded(map, key), hash_map_not_found) << "key " << key;
  }
  return map;
}

}  // namespace

// 110 has the taken home slot of 100; 108 has a free one.
TEST(HashMap, WithoutCollisionsEveryKeySitsAtItsHomeSlot) {
  const std::vector<unsigned long long> keys = {100, 101, 102, 103, 104, 105, 106, 107};
  const HashMap map = expect_map_of(keys, {108, 110});
  EXPECT_EQ(map.size, 10u);
  EXPECT_EQ(map.max_age, 1u);
  for (size_t k = 0; k < keys.size(); ++k) {
    EXPECT_EQ(map.keys[keys[k] % 10], keys[k]);
    EXPECT_EQ(map.ages[keys[k] % 10], 1u);
  }
}

// All keys share one home slot and the same probe sequence, so they must take up one offset each
// and evict each other; the device suite checks that the build restarts with new offsets.
TEST(HashMap, CollidingKeysAreEvictedAndStillFound) {
  std::vector<unsigned long long> keys;
  const unsigned long long size = static_cast<unsigned long long>(30 / 0.8f);
  for (unsigned long long k = 0; k < 30; ++k) keys.push_back((k + 1) * size);
  const HashMap map = expect_map_of(keys, {31 * size});
  EXPECT_EQ(map.size, size);
  EXPECT_GT(map.max_age, 20u);
  EXPECT_EQ(map.ages[0], map.max_age);
}

// Dense and clustered low keys: the whole key range is looked up.
TEST(HashMap, DenseRandomKeySet) {
  std::vector<unsigned long long> keys, others;
  std::set<unsigned long long> seen;
  for (uint64_t k = 0; keys.size() < 20000; ++k)
    if (const unsigned long long key = cloud::mix(k) % 60000; seen.insert(key).second) keys.push_back(key);
  for (unsigned long long key = 0; key < 60000; ++key)
    if (!seen.count(key)) others.push_back(key);
  const HashMap map = expect_map_of(keys, others);
  EXPECT_EQ(map.size, 25000u);
  EXPECT_GT(map.max_age, 1u);
}
