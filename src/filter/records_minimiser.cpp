#include "src/filter/records_minimiser.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

float records_minimiser(Minimum* records, int m, float slope) {
  int lo = 0, hi = m, mid = m / 2;
  float s = slope;
  while (true) {
    std::nth_element(records + lo, records + mid, records + hi);
    float s2 = s;
    for (int k = lo; k < mid; ++k) {
      s2 += records[k].jump;
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

namespace {

// Float bits to an unsigned key of the same order (-0 just below +0).
uint32_t order_key(float t) {
  uint32_t bits;
  std::memcpy(&bits, &t, sizeof bits);
  return bits & 0x80000000u ? ~bits : bits | 0x80000000u;
}

float key_value(uint64_t entry) {
  const uint32_t key = static_cast<uint32_t>(entry >> 32);
  const uint32_t bits = key & 0x80000000u ? key & 0x7fffffffu : ~key;
  float t;
  std::memcpy(&t, &bits, sizeof t);
  return t;
}

float entry_jump(uint64_t entry) {
  const uint32_t bits = static_cast<uint32_t>(entry);
  float jump;
  std::memcpy(&jump, &bits, sizeof jump);
  return jump;
}

// Stable least-significant-digit radix sort of the entries by their upper 32 bits, a byte at a
// time; bytes all entries share are skipped. Returns the buffer that holds the result.
uint64_t* radix_sort(uint64_t* entries, uint64_t* spare, int m) {
  uint32_t histogram[4][256] = {};
  for (int i = 0; i < m; ++i) {
    const uint32_t key = static_cast<uint32_t>(entries[i] >> 32);
    for (int d = 0; d < 4; ++d) ++histogram[d][key >> (8 * d) & 255];
  }
  for (int d = 0; d < 4; ++d) {
    uint32_t* start = histogram[d];
    const int shift = 32 + 8 * d;
    if (start[entries[0] >> shift & 255] == static_cast<uint32_t>(m)) continue;
    uint32_t sum = 0;
    for (int b = 0; b < 256; ++b) {
      const uint32_t count = start[b];
      start[b] = sum;
      sum += count;
    }
    for (int i = 0; i < m; ++i) spare[start[entries[i] >> shift & 255]++] = entries[i];
    std::swap(entries, spare);
  }
  return entries;
}

}  // namespace

bool sorted_minimiser(const Minimum* records, int m, float slope, MinimiserScratch& scratch, float& result) {
  scratch.keys.resize(m);
  scratch.spare.resize(m);
  scratch.prefix.resize(m + 1);
  uint64_t* entries = scratch.keys.data();
  for (int i = 0; i < m; ++i) {
    uint32_t jump;
    std::memcpy(&jump, &records[i].jump, sizeof jump);
    entries[i] = static_cast<uint64_t>(order_key(records[i].t)) << 32 | jump;
  }
  const uint64_t* sorted = radix_sort(entries, scratch.spare.data(), m);

  // Jumps summed in t order, in double; negative, infinite or NaN weights are left to the bisection.
  double* prefix = scratch.prefix.data();
  prefix[0] = 0.0;
  for (int i = 0; i < m; ++i) {
    const float jump = entry_jump(sorted[i]);
    if (!(jump >= 0.0f)) return false;
    prefix[i + 1] = prefix[i] + jump;
  }
  if (!std::isfinite(prefix[m]) || !std::isfinite(slope)) return false;

  // The bisection's path. At a probe it compares with 0 a float sum of the slope and the jumps of
  // all records below the probe, added in some order; such a sum of n + 1 terms lies within
  // n * 2^-24 (relative, to first order) of the sum of their magnitudes from the exact value.
  // Twice that margin also covers the rounding of the double sums here.
  const double margin = 1.0 / 8388608.0;
  int lo = 0, hi = m, mid = m / 2;
  while (true) {
    if (key_value(sorted[mid - 1]) == key_value(sorted[mid])) return false;  // the split of a tie
    const double left = static_cast<double>(slope) + prefix[mid];
    const double bound = (mid + 2) * margin * (std::fabs(static_cast<double>(slope)) + prefix[mid]);
    if (left > bound) {
      hi = mid;
    } else if (left < -bound) {
      lo = mid;
    } else {
      return false;
    }
    if (hi - lo < 2) break;
    mid = lo + (hi - lo) / 2;
  }
  // The bisection ends with the record of rank lo at lo; of records of equal t (only -0 and +0
  // differ in their bits) it could be either.
  result = key_value(sorted[lo]);
  if (result == 0.0f && ((lo > 0 && key_value(sorted[lo - 1]) == 0.0f) || (lo + 1 < m && key_value(sorted[lo + 1]) == 0.0f)))
    return false;
  return true;
}

float exact_step_minimiser(Minimum* records, int m, float slope, MinimiserScratch& scratch) {
  // Below about 64 records the bisection is faster than the sort's fixed cost.
  float result;
  if (m >= 64 && sorted_minimiser(records, m, slope, scratch, result)) return result;
  return records_minimiser(records, m, slope);
}
