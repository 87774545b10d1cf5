#include "src/spatial/hash_map.h"

#include <algorithm>

#include "src/spatial/hash_offsets.h"

namespace {

constexpr unsigned long long key_mask = 0xffffffffffffULL;
constexpr int offset_count = hash_offset_count;

// Places one key, moving on with any key it evicts. Returns false if some key ran out of ages.
bool insert_key(std::vector<unsigned long long>& table, std::vector<unsigned int>& ages,
                const std::vector<unsigned int>& hash_offsets, unsigned long long key, unsigned long long size) {
  unsigned long long age = 1;
  while (true) {
    const unsigned long long entry = age << 48 | key;
    const unsigned long long slot = (hash_offsets[age - 1] + key) % size;
    unsigned long long old;
#pragma omp critical(hash_age_keys)
    {
      old = table[slot];
      table[slot] = std::max(old, entry);
    }
    if (old >= entry) {
      // Lost against an older (or equally old and larger) key: try the next offset.
      ++age;
      if (age > offset_count) return false;
      continue;
    }
    const unsigned long long home = key % size;
#pragma omp critical(age_table)
    ages[home] = std::max(ages[home], static_cast<unsigned int>(age));
    const unsigned long long old_age = old >> 48;
    if (old_age == 0) return true;
    // The evicted key goes on from the age after the one it had.
    key = old & key_mask;
    if (old_age >= offset_count) return false;
    age = old_age + 1;
  }
}

}  // namespace

HashMap create_hash_map(const std::vector<unsigned long long>& keys, const std::vector<unsigned int>& values,
                        float load_factor) {
  const long long n = static_cast<long long>(keys.size());
  HashMap map;
  const unsigned int size = static_cast<unsigned int>(static_cast<float>(n) / load_factor);
  std::vector<unsigned long long> table(size);
  map.ages.resize(size);

  HashOffsetSource offset_source;
  while (true) {
    const long long slots = size;
#pragma omp parallel for schedule(static)
    for (long long s = 0; s < slots; ++s) {
      table[s] = 0;
      map.ages[s] = 0;
    }
    draw_hash_offsets(offset_source, map.hash_offsets);

    long long failures = 0;
#pragma omp parallel for schedule(dynamic, 64)
    for (long long k = 0; k < n; ++k) {
      if (!insert_key(table, map.ages, map.hash_offsets, keys[k], size)) {
#pragma omp atomic
        ++failures;
      }
    }
    if (failures == 0) break;
  }

  unsigned int max_age = 0;
  const long long slots = size;
#pragma omp parallel for schedule(static) reduction(max : max_age)
  for (long long s = 0; s < slots; ++s) max_age = std::max(max_age, map.ages[s]);
  map.max_age = max_age;
  map.size = size;

  map.keys.assign(size, ~0ULL);
  map.values.assign(size, hash_map_not_found);
#pragma omp parallel for schedule(static)
  for (long long k = 0; k < n; ++k) {
    const unsigned long long key = keys[k];
    for (int a = 0; a < offset_count; ++a) {
      const unsigned long long slot = (map.hash_offsets[a] + key) % size;
      if ((table[slot] & key_mask) == key) {
        map.keys[slot] = key;
        map.values[slot] = values[k];
        break;
      }
    }
  }
  return map;
}
