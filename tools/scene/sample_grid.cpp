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

// The cell's number, or -1 when no sample lies in it.
int64_t find_cell(const SampleGrid& g, uint64_t key) {
  const size_t mask = g.slot_key.size() - 1;
  for (size_t slot = (key * 0x9E3779B97F4A7C15ULL) >> 20 & mask;; slot = (slot + 1) & mask) {
    if (g.slot_key[slot] == key) return g.slot_cell[slot];
    if (g.slot_key[slot] == kNoCell) return -1;
  }
}

// The point's cell relative to the grid's corner, or kNoCell when no sample lies in its neighbourhood.
uint64_t point_key(const SampleGrid& g, Vec3 p) {
  int64_t cell[3];
  cell_of(p, g.tolerance, cell);
  for (int a = 0; a < 3; ++a) {
    cell[a] -= g.origin[a];
    if (cell[a] < 0 || cell[a] >= kAxisCells) return kNoCell;
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
  // One cell of margin on each side, so that a point's neighbours never leave the packed range.
  for (int a = 0; a < 3; ++a) {
    g.origin[a] = low[a] - 1;
    if (high[a] - g.origin[a] + 2 >= kAxisCells)
      throw std::runtime_error("measure_completeness: the samples span more than " + std::to_string(kAxisCells - 3) +
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
    if (i == 0 || keys[g.given[i]] != keys[g.given[i - 1]]) g.cell_start.push_back(i);
  const size_t cell_count = g.cell_start.size();
  g.cell_start.push_back(n);
  size_t slots = 16;
  while (slots < 2 * cell_count) slots *= 2;
  g.slot_key.assign(slots, kNoCell);
  g.slot_cell.assign(slots, 0);
  const size_t mask = slots - 1;
  for (size_t c = 0; c < cell_count; ++c) {
    const uint64_t key = keys[g.given[g.cell_start[c]]];
    size_t slot = (key * 0x9E3779B97F4A7C15ULL) >> 20 & mask;
    while (g.slot_key[slot] != kNoCell) slot = (slot + 1) & mask;
    g.slot_key[slot] = key;
    g.slot_cell[slot] = static_cast<uint32_t>(c);
  }
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
  const int64_t mask = kAxisCells - 1;
  const size_t run_count = runs.size() - 1;
#pragma omp parallel for schedule(dynamic, 64)
  for (size_t run = 0; run < run_count; ++run) {
    const size_t begin = runs[run], end = runs[run + 1];
    const uint64_t key = order[begin].first;
    const int64_t at[3] = {static_cast<int64_t>(key >> (2 * kAxisBits)), static_cast<int64_t>(key >> kAxisBits) & mask,
                           static_cast<int64_t>(key) & mask};
    for (int64_t dx = -1; dx <= 1; ++dx)
      for (int64_t dy = -1; dy <= 1; ++dy)
        for (int64_t dz = -1; dz <= 1; ++dz) {
          const int64_t near[3] = {at[0] + dx, at[1] + dy, at[2] + dz};
          if (std::min({near[0], near[1], near[2]}) < 0 || std::max({near[0], near[1], near[2]}) >= kAxisCells) continue;
          const int64_t cell = find_cell(g, pack(near));
          if (cell < 0) continue;
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

std::vector<char> covered_in_given_order(const SampleGrid& g) {
  std::vector<char> covered(g.samples.size(), 0);
  for (size_t i = 0; i < g.samples.size(); ++i) covered[g.given[i]] = static_cast<char>(g.covered[i]);
  return covered;
}

size_t covered_count(const SampleGrid& g) {
  return static_cast<size_t>(std::count(g.covered.begin(), g.covered.end(), uint8_t{1}));
}

}  // namespace scene
