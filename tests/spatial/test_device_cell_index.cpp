#include <gtest/gtest.h>

#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "device/memory.h"
#include "ketra/tools.h"
#include "tests/support/ketra_test_support.h"
#include "tests/support/particle_cloud.h"
#include "src/spatial/cell_index.h"
#include "src/spatial/hash_map.h"
#include "src/spatial/hash_offsets.h"
#include "src/spatial/hashing.h"
#include "src/spatial/particle_filtering_kernels.h"

namespace {

// Sorted-key sets: `cells` distinct random cells, each repeated 1 to `max_run` times.
std::vector<unsigned long long> sorted_keys(uint64_t seed, int cells, int max_run) {
  std::set<unsigned long long> distinct;
  for (uint64_t k = 0; static_cast<int>(distinct.size()) < cells; ++k)
    distinct.insert(cloud::mix(seed * 1000003 + k) & 0xffffffffffffULL);
  std::vector<unsigned long long> keys;
  uint64_t r = 0;
  for (unsigned long long key : distinct) keys.insert(keys.end(), 1 + cloud::mix(seed ^ r++) % max_run, key);
  return keys;
}

template <class T>
uint4 extents_of(const std::vector<T>& v) {
  return make_uint4(static_cast<unsigned int>(v.size()), 1, 1, 1);
}

class DeviceCellIndex : public KetraTest {
 protected:
  void expect_same_table(const std::vector<unsigned long long>& keys) {
    SCOPED_TRACE("keys: " + std::to_string(keys.size()));
    std::vector<unsigned long long> host_keys = keys, host_cell_keys;
    std::vector<unsigned int> host_cell_starts;
    create_cell_start_index_table(host_cell_keys, host_cell_starts, host_keys);
    ketra::Array<unsigned long long, 1> d_keys = device_array<1>(extents_of(keys), keys), d_cell_keys;
    ketra::Array<unsigned int, 1> d_cell_starts;
    const size_t live = device::liveAllocationCount();
    create_cell_start_index_table(d_cell_keys, d_cell_starts, d_keys);
    EXPECT_EQ(device::liveAllocationCount(), live + 2) << "only the two tables stay allocated";
    EXPECT_EQ(d_cell_keys.device, 0);
    EXPECT_EQ(download(owned(d_cell_keys)), host_cell_keys);
    EXPECT_EQ(download(owned(d_cell_starts)), host_cell_starts);
  }
};

class DeviceHashMap : public KetraTest {
 protected:
  // Builds the device map of keys (values 7k + 3), checks it against the host form and returns the
  // printed text.
  std::string expect_device_map_as_host(const std::vector<unsigned long long>& keys, HashMap* out) {
    std::vector<unsigned int> values(keys.size());
    for (size_t k = 0; k < keys.size(); ++k) values[k] = static_cast<unsigned int>(7 * k + 3);
    const HashMap host_map = create_hash_map(keys, values, 0.8f);
    ketra::Array<unsigned long long, 1> d_keys{};
    ketra::Array<unsigned int, 1> d_values{};
    if (!keys.empty()) {
      d_keys = device_array<1>(extents_of(keys), keys);
      d_values = device_array<1>(extents_of(values), values);
    }
    const size_t live = device::liveAllocationCount();
    testing::internal::CaptureStdout();
    *out = create_hash_map(d_keys, d_values, 0.8f);
    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(device::liveAllocationCount(), live) << "temporaries are freed";
    EXPECT_EQ(out->size, host_map.size);
    EXPECT_EQ(out->max_age, host_map.max_age);
    EXPECT_EQ(out->hash_offsets, host_map.hash_offsets);
    EXPECT_EQ(out->ages, host_map.ages);
    EXPECT_EQ(out->keys, host_map.keys);
    EXPECT_EQ(out->values, host_map.values);
    return printed;
  }
};

std::string expected_print(unsigned int size, int attempts, unsigned int max_age) {
  std::string s = "hash map size is " + std::to_string(size) + "\n";
  for (int a = 1; a <= attempts; ++a) s += "trying to build hash map: attempt " + std::to_string(a) + "\n";
  return s + " max age is " + std::to_string(max_age) + "\n";
}

// Keys to look up in a map, the keys that must not be found, and whether the first build succeeds.
struct KeySet {
  std::vector<unsigned long long> keys, others;
  bool first_attempt = true;
};

std::vector<KeySet> key_sets() {
  std::vector<KeySet> sets;
  for (int n : {0, 1, 8, 1000, 30000}) {  // sparse random keys
    std::set<unsigned long long> distinct;
    for (uint64_t k = 0; static_cast<int>(distinct.size()) < n; ++k) distinct.insert(cloud::mix(n + k) >> 16);
    sets.push_back({{distinct.begin(), distinct.end()}, {}});
  }
  KeySet& dense = sets.emplace_back();  // a third of the keys below 60000, the rest looked up as others
  std::set<unsigned long long> seen;
  for (uint64_t k = 0; dense.keys.size() < 20000; ++k)
    if (const unsigned long long key = cloud::mix(k) % 60000; seen.insert(key).second) dense.keys.push_back(key);
  for (unsigned long long key = 0; key < 60000; ++key)
    if (!seen.count(key)) dense.others.push_back(key);
  // One home slot and one probe sequence for all keys and the other.
  const unsigned long long size = static_cast<unsigned long long>(30 / 0.8f);
  KeySet& colliding = sets.emplace_back(KeySet{{}, {31 * size}, false});
  for (unsigned long long k = 0; k < 30; ++k) colliding.keys.push_back((k + 1) * size);
  return sets;
}

}  // namespace

TEST_F(DeviceCellIndex, TableMatchesTheHostForm) {
  // (cells, longest run): one key, all keys equal, all distinct around the block of 128, runs that
  // cross block borders.
  for (auto [cells, max_run] : std::vector<std::pair<int, int>>{{1, 1}, {1, 300}, {127, 1}, {129, 1}, {700, 9}, {20000, 4}})
    expect_same_table(sorted_keys(cells + max_run, cells, max_run));
  std::vector<unsigned long long> with_invalid = sorted_keys(7, 500, 3);
  with_invalid.insert(with_invalid.end(), 40, 0xffffffffffffULL);  // invalid particles: one last cell
  expect_same_table(with_invalid);
}

TEST_F(DeviceCellIndex, SortMatchesTheStableHostSort) {
  for (size_t n : {1, 300, 5000, 70000}) {
    std::vector<unsigned long long> keys(n);
    std::vector<unsigned int> handles(n);
    for (size_t k = 0; k < n; ++k) {
      // Few distinct keys, so that equal keys must keep their handle order.
      keys[k] = (cloud::mix(n * 977 + k) % 97) * 0x10000000001ULL;
      handles[k] = static_cast<unsigned int>(n - 1 - k);
    }
    ketra::Array<unsigned long long, 1> d_keys = device_array<1>(extents_of(keys), keys);
    ketra::Array<unsigned int, 1> d_handles = device_array<1>(extents_of(handles), handles);
    sort_particle_handles(handles, keys);
    sort_particle_handles(d_handles, d_keys);
    EXPECT_EQ(download(d_keys), keys) << n;
    EXPECT_EQ(download(d_handles), handles) << n;
  }
  ketra::Array<unsigned long long, 1> no_keys{};
  ketra::Array<unsigned int, 1> no_handles{};
  EXPECT_NO_THROW(sort_particle_handles(no_handles, no_keys));
}

// Sparse and dense key sets, and one whose keys share one home slot and one probe sequence, so
// that attempts fail until the offsets spread them: the device builds the host map, prints its
// attempts and ends with the offsets of the last attempt's draw; both lookups find every key with
// its value and none of the others.
TEST_F(DeviceHashMap, KeySetsGiveTheHostMapAndItsLookups) {
  for (const KeySet& set : key_sets()) {
    SCOPED_TRACE(testing::Message() << set.keys.size() << " keys");
    HashMap map;
    const std::string printed = expect_device_map_as_host(set.keys, &map);
    int attempts = 0;
    for (size_t p = printed.find("attempt "); p != std::string::npos; p = printed.find("attempt ", p + 1)) ++attempts;
    EXPECT_EQ(attempts == 1, set.first_attempt);
    EXPECT_EQ(map.size, static_cast<unsigned int>(set.keys.size() / 0.8f));
    EXPECT_EQ(printed, expected_print(map.size, attempts, map.max_age));
    HashOffsetSource source;
    std::vector<unsigned int> offsets;
    for (int a = 0; a < attempts; ++a) draw_hash_offsets(source, offsets);
    if (!set.keys.empty()) {
      EXPECT_EQ(map.hash_offsets, offsets);
      EXPECT_EQ(std::vector<unsigned int>(d_hash_offsets, d_hash_offsets + 64), offsets);
    }
    EXPECT_EQ(d_hash_map_construction_error, 0u);
    for (size_t k = 0; k < set.keys.size(); ++k) {
      ASSERT_EQ(hash_map_find(map, set.keys[k]), 7 * k + 3) << set.keys[k];
      ASSERT_EQ(hash_map_find_bounded(map, set.keys[k]), 7 * k + 3) << set.keys[k];
    }
    for (unsigned long long key : set.others) {
      ASSERT_EQ(hash_map_find(map, key), hash_map_not_found) << key;
      ASSERT_EQ(hash_map_find_bounded(map, key), hash_map_not_found) << key;
    }
  }
}
