#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/simd_lanes.h"

// The neighbours of one cell in the order they are delivered: the 27 cells in offset order, each
// run sampled at every stride-th position. The same for every particle of the cell. The arrays
// hold size() entries and at least kLanes more, so that eight entries can be read from any entry on.
struct NeighbourList {
  std::vector<int> index;
  std::vector<float> x, y, z;
  // The present neighbour runs as [begin, end) in the list, with the view all particles of the
  // whole run come from (-1 if mixed; filled only for functors that ignore their own view).
  struct Run {
    int begin, end, view;
  };
  // Bounds of each run's sampled positions, and whether they are all finite.
  struct Bounds {
    float lo[3], hi[3];
    bool finite;
  };
  Run runs[27];
  Bounds bounds[27];
  int run_count = 0;
  int count = 0;

  int size() const { return count; }
  void clear() {
    count = 0;
    run_count = 0;
  }
  void push(int j, float3 p) {
    if (count + kLanes >= static_cast<int>(index.size())) {
      const size_t grown = 2 * index.size() + 4 * kLanes;
      index.resize(grown);
      x.resize(grown);
      y.resize(grown);
      z.resize(grown);
    }
    index[count] = j;
    x[count] = p.x;
    y[count] = p.y;
    z[count] = p.z;
    ++count;
  }
  void compute_bounds();
};

// Up to kLanes particles of one cell, handled side by side. Unused lanes repeat the last used one.
struct CellBatch {
  int count = 0;
  int index[kLanes];
  float x[kLanes], y[kLanes], z[kLanes];
  // 1 where (i, i) is among the list's entries, else 0; a stride may have stepped over it.
  int self_listed[kLanes];
  // For functors bound by the radius: the list's entries, in order, that may lie within the radius
  // of some lane's particle; the others are beyond it for every lane, by a bound that holds for the
  // rounded distances too.
  const int* entries = nullptr;
  int entry_count = 0;
};

// The largest float whose square root is not above h: sqrtf(r2) > h exactly when r2 is above it.
// HUGE_VALF for a radius that is not finite and non-negative.
float squared_reach(float h);

// Writes to `entries` the list entries that may lie within the radius (squared reach `reach2`) of
// one of the batch's particles. Distances are bounded through the boxes of the batch and of each
// run; rounding is monotone, so a bound computed in float holds for the float distance of every pair.
void entries_in_reach(const CellBatch& batch, const NeighbourList& list, float reach2, std::vector<int>& entries);

// Run positions 0 .. length - 1 of a cell's particles in the order they are batched: by quarter
// cells, so that a batch covers a small part of the cell. Which lane a particle gets does not
// change its result.
void batch_order(const float3* positions, long long length, float3 grid_min, float inv_cell, std::vector<int>& order);

