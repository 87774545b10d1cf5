#include "tools/scene/sample_grid.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <numeric>
#include <stdexcept>

namespace scene {
namespace {

constexpr int kAxisBits = 21;
constexpr int64_t kAxisCells = int64_t{1} << kAxisBits;
constexpr uint64_t kNoCell = ~uint64_t{0};

void cell_of(Vec3 p, double size, int64_t cell[3]) {
  cell[0] = static_cast<int64_t>(std::floor(p.x / size));
  cell[1] = static_cast<int64_t>(std::floor(p.y / size));
  cell[2] = static_cast<int64_t>(std::floor(p.z / size));
}

uint64_t pack(const int64_t relative[3]) {
  return static_cast<uint64_t>(relative[0]) << (2 * kAxisBits) | static_cast<uint64_t>(relative[1]) << kAxisBits |
         static_cast<uint64_t>(relative[2]);
}

// The first cell from `at` on whose key is not below `key`: a gallop forward from a cursor that
// moves little between neighbouring points, then a binary search.
size_t cell_at_or_after(const std::vector<uint64_t>& keys, size_t at, uint64_t key) {
  size_t step = 1, high = at;
  while (high < keys.size() && keys[high] < key) {
    at = high + 1;
    high += step;
    step *= 2;
  }
  return static_cast<size_t>(std::lower_bound(keys.begin() + static_cast<std::ptrdiff_t>(at),
                                              keys.begin() + static_cast<std::ptrdiff_t>(std::min(high, keys.size())), key) -
                             keys.begin());
}

// The point's cell relative to the grid's corner, or kNoCell when no sample lies in its neighbourhood.
uint64_t point_key(const SampleGrid& g, Vec3 p) {
  int64_t cell[3];
  cell_of(p, g.tolerance, cell);
  for (int a = 0; a < 3; ++a) {
    cell[a] -= g.origin[a];
    if (cell[a] < 1 || cell[a] > kAxisCells - 2) return kNoCell;
  }
  return pack(cell);
}

}  // namespace

SampleGrid make_sample_grid(const std::vector<Vec3>& samples, double tolerance, const std::vector<int>& labels) {
  if (!(tolerance > 0)) throw std::runtime_error("measure_completeness: the tolerance must be positive");
  SampleGrid g;
  g.tolerance = tolerance;
  const size_t n = samples.size();
  std::vector<int64_t> cells(3 * n);
  int64_t low[3] = {0, 0, 0}, high[3] = {0, 0, 0};
  for (size_t k = 0; k < n; ++k) {
    cell_of(samples[k], tolerance, &cells[3 * k]);
    for (int a = 0; a < 3; ++a) {
      low[a] = k == 0 ? cells[3 * k + a] : std::min(low[a], cells[3 * k + a]);
      high[a] = k == 0 ? cells[3 * k + a] : std::max(high[a], cells[3 * k + a]);
    }
  }
  // Two cells of margin on each side: a point that can reach a sample lies one cell inside the
  // packed range at least, so its neighbours' keys never borrow from another axis.
  for (int a = 0; a < 3; ++a) {
    g.origin[a] = low[a] - 2;
    if (high[a] - g.origin[a] + 3 >= kAxisCells)
      throw std::runtime_error("measure_completeness: the samples span more than " + std::to_string(kAxisCells - 5) +
                               " cells of the tolerance along an axis");
  }
  std::vector<uint64_t> keys(n);
  for (size_t k = 0; k < n; ++k) {
    int64_t relative[3];
    for (int a = 0; a < 3; ++a) relative[a] = cells[3 * k + a] - g.origin[a];
    keys[k] = pack(relative);
  }
  std::vector<int64_t>().swap(cells);
  g.given.resize(n);
  std::iota(g.given.begin(), g.given.end(), size_t{0});
  std::sort(g.given.begin(), g.given.end(), [&](size_t a, size_t b) { return keys[a] < keys[b] || (keys[a] == keys[b] && a < b); });
  g.samples.resize(n);
  if (!labels.empty()) g.labels.resize(n);
  for (size_t i = 0; i < n; ++i) {
    g.samples[i] = samples[g.given[i]];
    if (!labels.empty()) g.labels[i] = labels[g.given[i]];
  }
  for (size_t i = 0; i < n; ++i)
    if (i == 0 || keys[g.given[i]] != keys[g.given[i - 1]]) {
      g.cell_start.push_back(i);
      g.cell_key.push_back(keys[g.given[i]]);
    }
  g.cell_start.push_back(n);
  g.covered.assign(n, 0);
  return g;
}

void mark_covered(SampleGrid& g, const std::vector<Vec3>& points, const std::vector<int>& labels) {
  if (g.samples.empty()) return;
  const bool labelled = !g.labels.empty();
  // Points sorted by cell, so that each cell's neighbourhood is looked up once for all its points.
  std::vector<std::pair<uint64_t, size_t>> order;
  order.reserve(points.size());
  for (size_t i = 0; i < points.size(); ++i) {
    const uint64_t key = point_key(g, points[i]);
    if (key != kNoCell) order.push_back({key, i});
  }
  std::sort(order.begin(), order.end());
  std::vector<size_t> runs;
  for (size_t r = 0; r < order.size(); ++r)
    if (r == 0 || order[r].first != order[r - 1].first) runs.push_back(r);
  runs.push_back(order.size());
  // The 27 neighbours of a cell are nine columns of three cells with consecutive keys. Runs come in
  // ascending keys, so a cursor per column only moves forward; each thread takes a stretch of runs.
  int64_t columns[9];
  for (int dx = -1, c = 0; dx <= 1; ++dx)
    for (int dy = -1; dy <= 1; ++dy) columns[c++] = dx * (int64_t{1} << (2 * kAxisBits)) + dy * (int64_t{1} << kAxisBits);
  const size_t run_count = runs.size() - 1;
  constexpr size_t kStretch = 512;
#pragma omp parallel for schedule(dynamic, 1)
  for (size_t stretch = 0; stretch < run_count; stretch += kStretch) {
    size_t cursor[9] = {0, 0, 0, 0, 0, 0, 0, 0, 0};
    for (size_t run = stretch; run < std::min(run_count, stretch + kStretch); ++run) {
      const size_t begin = runs[run], end = runs[run + 1];
      for (int c = 0; c < 9; ++c) {
        const uint64_t first = order[begin].first + columns[c] - 1, last = first + 2;
        cursor[c] = cell_at_or_after(g.cell_key, cursor[c], first);
        for (size_t cell = cursor[c]; cell < g.cell_key.size() && g.cell_key[cell] <= last; ++cell)
          for (size_t s = g.cell_start[cell]; s < g.cell_start[cell + 1]; ++s) {
            std::atomic_ref<uint8_t> covered(g.covered[s]);
            if (covered.load(std::memory_order_relaxed)) continue;
            for (size_t r = begin; r < end; ++r) {
              const size_t i = order[r].second;
              if (length(points[i] - g.samples[s]) < g.tolerance && (!labelled || labels[i] == g.labels[s])) {
                covered.store(1, std::memory_order_relaxed);
                break;
              }
            }
          }
      }
    }
  }
}

std::vector<char> covered_in_given_order(const SampleGrid& g) {
  std::vector<char> covered(g.samples.size(), 0);
  for (size_t i = 0; i < g.samples.size(); ++i) covered[g.given[i]] = static_cast<char>(g.covered[i]);
  return covered;
}

size_t covered_count(const SampleGrid& g) {
  return static_cast<size_t>(std::count(g.covered.begin(), g.covered.end(), uint8_t{1}));
}

}  // namespace scene
