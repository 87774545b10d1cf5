#pragma once

#include <vector>

// Static hash table from a 48-bit cell key to the start of the cell's run of handles. A key sits at
// one of 64 slots (hash_offsets[a] + key) % size; `ages`, indexed by the home slot key % size,
// bounds how many of those a lookup has to probe.
struct HashMap {
  std::vector<unsigned long long> keys;  // per slot: the key, all bits set if free
  std::vector<unsigned int> values;      // per slot: the value, 0xFFFFFFFF if free
  std::vector<unsigned int> ages;        // per home slot: largest age of a key with that home slot
  std::vector<unsigned int> hash_offsets;  // 64 entries, entry 0 is 0
  unsigned int max_age = 0;
  unsigned int size = 0;
};

constexpr unsigned int hash_map_not_found = 0xFFFFFFFFu;

// Builds the table for unique 48-bit keys with `size = n / load_factor` slots. Construction is a
// competition by age in which the older key wins a slot; a failed build starts again with new offsets
// drawn from a Mersenne twister seeded with 5489 on every call.
HashMap create_hash_map(const std::vector<unsigned long long>& keys, const std::vector<unsigned int>& values,
                        float load_factor);

// Lookup of a cell that may not exist: probes ages[home] + 1 slots (none if the age is 0).
inline unsigned int hash_map_find_bounded(const HashMap& map, unsigned long long key) {
  const unsigned int age = map.ages[key % map.size];
  if (age < 1) return hash_map_not_found;
  // A key of age 64 would ask for a 65th probe; the table has 64 offsets, and no key lies beyond them.
  const unsigned int last = age < 63 ? age : 63;
  for (unsigned int a = 0; a <= last; ++a) {
    const unsigned long long slot = (map.hash_offsets[a] + key) % map.size;
    if (map.keys[slot] == key) return map.values[slot];
  }
  return hash_map_not_found;
}

// Lookup of a cell that must exist: probes all 64 offsets without reading `ages`.
inline unsigned int hash_map_find(const HashMap& map, unsigned long long key) {
  for (unsigned int a = 0; a < 64; ++a) {
    const unsigned long long slot = (map.hash_offsets[a] + key) % map.size;
    if (map.keys[slot] == key) return map.values[slot];
  }
  return hash_map_not_found;
}
