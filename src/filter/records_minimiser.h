#pragma once

#include <cstdint>
#include <vector>

// One breakpoint of the exact step's piecewise linear energy: at `t` the slope rises by `jump`,
// which is the term's weight for a one-sided term and twice it for a two-sided one. Records
// compare by t.
struct Minimum {
  float t;
  float jump;
  bool operator<(const Minimum& other) const { return t < other.t; }
};

// Right end of the minimum of the energy whose slope left of all breakpoints is `slope`: a
// bisection with nth_element on a shrinking range instead of a full sort, summing the jumps of each
// left half in float. Reorders the records.
float records_minimiser(Minimum* records, int m, float slope);

// Per-thread scratch of sorted_minimiser.
struct MinimiserScratch {
  std::vector<uint64_t> entries, spare;
};

// The value records_minimiser gives, found on a sorted copy where the slope at every probe of the
// bisection is a sum over a prefix. The float sums of the bisection depend on the order nth_element
// leaves, so this holds only where each decision is clear of their rounding and no probe splits
// records of equal t; otherwise it returns false and leaves the records untouched.
bool sorted_minimiser(const Minimum* records, int m, float slope, MinimiserScratch& scratch, float& result);

// records_minimiser's value, by the sorted form where the set is large enough to gain from it.
float exact_step_minimiser(Minimum* records, int m, float slope, MinimiserScratch& scratch);
