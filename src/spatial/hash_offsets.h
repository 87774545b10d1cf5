#pragma once

#include <vector>

#include <boost/random/mersenne_twister.hpp>

// Number of probe offsets of a hash map, and so the largest age a key can reach.
constexpr int hash_offset_count = 64;

// Source of the probe offsets of one hash map build. Every build makes a new one, seeded with 5489,
// so that attempt k of every build in a run uses the same offsets, in the host and device forms alike.
struct HashOffsetSource {
  boost::random::mt19937 engine{5489u};
};

// The offsets of the next attempt: entry 0 is 0 (the home slot), entries 1 to 63 are drawn in order,
// uniformly from 0 to 0x7FFFFFFF, continuing the source's sequence. `offsets` is resized to 64.
void draw_hash_offsets(HashOffsetSource& source, std::vector<unsigned int>& offsets);
