#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/scene/vec3.h"

namespace scene {

// Samples bucketed in cells of the tolerance's size, so that points can be streamed past them and
// mark every sample they come closer than the tolerance to: a point within the tolerance of a sample
// lies in the sample's cell or one of its 26 neighbours. Memory grows with the samples only.
struct SampleGrid {
  double tolerance = 0;
  int64_t origin[3] = {0, 0, 0};  // cell coordinates are kept relative to this corner
  std::vector<Vec3> samples;      // sorted by cell
  std::vector<size_t> given;      // the index each sorted sample had as given
  std::vector<int> labels;        // per sorted sample; empty: any point covers any sample
  std::vector<uint64_t> cell_key; // the cells holding samples, by their packed keys, ascending
  std::vector<size_t> cell_start; // where each cell's samples begin, and one past the last cell
  std::vector<uint8_t> covered;   // per sorted sample
};

// Throws std::runtime_error for a tolerance that is not positive, or samples spread over more than
// two million cells along an axis.
SampleGrid make_sample_grid(const std::vector<Vec3>& samples, double tolerance, const std::vector<int>& labels = {});

// Marks the samples that a point lies closer than the tolerance to (with labels: a point of the
// sample's own label). Points may come in any number of calls.
void mark_covered(SampleGrid& grid, const std::vector<Vec3>& points, const std::vector<int>& labels = {});

// Per sample in the order given, whether a point came within the tolerance.
std::vector<char> covered_in_given_order(const SampleGrid& grid);
size_t covered_count(const SampleGrid& grid);

}  // namespace scene
