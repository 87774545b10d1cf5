#include "src/filter/records_minimiser.h"

#include <algorithm>
#include <cfloat>
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
    // Not `s2 <= 0`: a NaN slope must still move a bound, or the bisection never ends.
    if (!(s2 > 0.0f)) {
      lo = mid;
      s = s2;
    }
    if (hi - lo < 2) break;
    mid = lo + (hi - lo) / 2;
  }
  return records[lo].t;
}

namespace {

// A record as one 64-bit entry, t in the upper half.
uint64_t entry_of(const Minimum& record) {
  uint32_t t, jump;
  std::memcpy(&t, &record.t, sizeof t);
  std::memcpy(&jump, &record.jump, sizeof jump);
  return static_cast<uint64_t>(t) << 32 | jump;
}

float entry_t(uint64_t entry) {
  const uint32_t bits = static_cast<uint32_t>(entry >> 32);
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

// Sorts the entries by t: a radix sort by two bytes of t scaled linearly onto 0 .. 65535, which is
// monotone in t, then an insertion pass that orders the entries sharing a scaled value. Returns
// false where t doesn't span a finite, non-empty range.
bool sort_by_t(uint64_t* entries, uint64_t* spare, int m, float t_min, float t_max) {
  const float span = t_max - t_min;
  const float scale = 65535.0f / span;
  if (!(span > 0.0f) || !(scale <= FLT_MAX)) return false;
  auto key = [&](uint64_t entry) {
    const uint32_t k = static_cast<uint32_t>((entry_t(entry) - t_min) * scale);
    return k > 65535u ? 65535u : k;
  };
  uint32_t low[257] = {}, high[257] = {};
  for (int i = 0; i < m; ++i) {
    const uint32_t k = key(entries[i]);
    ++low[(k & 255) + 1];
    ++high[(k >> 8) + 1];
  }
  for (int b = 0; b < 256; ++b) {
    low[b + 1] += low[b];
    high[b + 1] += high[b];
  }
  for (int i = 0; i < m; ++i) spare[low[key(entries[i]) & 255]++] = entries[i];
  for (int i = 0; i < m; ++i) entries[high[key(spare[i]) >> 8]++] = spare[i];
  for (int i = 1; i < m; ++i) {
    const uint64_t entry = entries[i];
    const float t = entry_t(entry);
    int j = i - 1;
    if (!(t < entry_t(entries[j]))) continue;
    while (j >= 0 && t < entry_t(entries[j])) {
      entries[j + 1] = entries[j];
      --j;
    }
    entries[j + 1] = entry;
  }
  return true;
}

}  // namespace

bool sorted_minimiser(const Minimum* records, int m, float slope, MinimiserScratch& scratch, float& result) {
  scratch.entries.resize(m);
  scratch.spare.resize(m);
  uint64_t* entries = scratch.entries.data();
  // Negative, infinite or NaN weights are left to the bisection.
  bool valid = std::isfinite(slope);
  float t_min = FLT_MAX, t_max = -FLT_MAX;
  for (int i = 0; i < m; ++i) {
    entries[i] = entry_of(records[i]);
    const float t = records[i].t;
    valid = valid && t == t;  // NaN t has no place in the order
    t_min = t < t_min ? t : t_min;
    t_max = t > t_max ? t : t_max;
    valid = valid && records[i].jump >= 0.0f && records[i].jump <= FLT_MAX;
  }
  if (!valid || !sort_by_t(entries, scratch.spare.data(), m, t_min, t_max)) return false;

  // The bisection's path. At a probe it compares with 0 a float sum of the slope and the jumps of
  // all records below the probe, added in some order; such a sum of n + 1 terms lies within
  // n * 2^-24 (relative, to first order) of the sum of their magnitudes from the exact value.
  // Twice that margin also covers the rounding of the double sums here.
  const double margin = 1.0 / 8388608.0;
  int lo = 0, hi = m, mid = m / 2;
  double below_lo = 0.0;  // jumps of the records below lo
  while (true) {
    if (entry_t(entries[mid - 1]) == entry_t(entries[mid])) return false;  // the split of a tie
    double partial[4] = {};
    int k = lo;
    for (; k + 4 <= mid; k += 4)
      for (int p = 0; p < 4; ++p) partial[p] += entry_jump(entries[k + p]);
    for (; k < mid; ++k) partial[0] += entry_jump(entries[k]);
    const double below_mid = below_lo + ((partial[0] + partial[1]) + (partial[2] + partial[3]));
    const double left = static_cast<double>(slope) + below_mid;
    const double bound = (mid + 2) * margin * (std::fabs(static_cast<double>(slope)) + below_mid);
    if (left > bound) {
      hi = mid;
    } else if (left < -bound) {
      lo = mid;
      below_lo = below_mid;
    } else {
      return false;
    }
    if (hi - lo < 2) break;
    mid = lo + (hi - lo) / 2;
  }
  // The bisection ends with the record of rank lo at lo; of records of equal t (only -0 and +0
  // differ in their bits) it could be either.
  result = entry_t(entries[lo]);
  if (result == 0.0f &&
      ((lo > 0 && entry_t(entries[lo - 1]) == 0.0f) || (lo + 1 < m && entry_t(entries[lo + 1]) == 0.0f)))
    return false;
  return true;
}

float exact_step_minimiser(Minimum* records, int m, float slope, MinimiserScratch& scratch) {
  // Below about 16 records the bisection is faster than the sort's fixed cost.
  float result;
  if (m >= 16 && sorted_minimiser(records, m, slope, scratch, result)) return result;
  return records_minimiser(records, m, slope);
}
