#include "src/spatial/neighbour_batch.h"

#include <cfloat>
#include <cmath>

namespace {

bool finite(float v) { return std::fabs(v) <= FLT_MAX; }

// Whether every distance between a point of box a and a point of box b is beyond the reach. Per
// axis the gap is the least and the span the largest coordinate difference of such points, both
// rounded like the differences themselves; squares and sums keep the order, so the float distance
// of each pair lies between their sums. A distance that might overflow is never called beyond.
bool beyond(const float a_lo[3], const float a_hi[3], const float b_lo[3], const float b_hi[3], float reach2) {
  float gap[3], span[3];
  for (int d = 0; d < 3; ++d) {
    const float below = a_lo[d] - b_hi[d], above = b_lo[d] - a_hi[d];
    const float g = below > above ? below : above;
    gap[d] = g > 0.0f ? g : 0.0f;
    const float up = a_hi[d] - b_lo[d], down = b_hi[d] - a_lo[d];
    span[d] = up > down ? up : down;
  }
  const float gap2 = gap[0] * gap[0] + gap[1] * gap[1] + gap[2] * gap[2];
  const float span2 = span[0] * span[0] + span[1] * span[1] + span[2] * span[2];
  return gap2 > reach2 && span2 <= FLT_MAX;
}

// The point form of `beyond` for the entries [begin, end), eight at a time (the list has room to
// read past its end), appending those not beyond to `out`.
LANE_KERNEL int entries_not_beyond(const NeighbourList& list, int begin, int end, const float lo[3],
                                   const float hi[3], float reach2, int* out) {
  int count = 0;
  for (int e = begin; e < end; e += kLanes) {
    const lane_float p[3] = {lane_load(list.x.data() + e), lane_load(list.y.data() + e), lane_load(list.z.data() + e)};
    lane_float gap2{}, span2{};
    for (int d = 0; d < 3; ++d) {
      const lane_float below = p[d] - hi[d], above = lo[d] - p[d];
      lane_float g = below > above ? below : above;
      g = g > 0.0f ? g : lane_float{};
      const lane_float up = p[d] - lo[d], down = hi[d] - p[d];
      const lane_float span = up > down ? up : down;
      gap2 = d == 0 ? g * g : gap2 + g * g;
      span2 = d == 0 ? span * span : span2 + span * span;
    }
    const lane_int far = (gap2 > reach2) & (span2 <= FLT_MAX);
    const int lanes = end - e < kLanes ? end - e : kLanes;
    for (int l = 0; l < lanes; ++l) {
      out[count] = e + l;
      count += far[l] == 0;
    }
  }
  return count;
}

// Quarter-cell coordinate of v, 0 to 3; 0 where the cell coordinate can't be formed.
unsigned int quarter(float v, float origin, float inv_cell) {
  const float f = (v - origin) * inv_cell * 4.0f;
  if (!(std::fabs(f) < 1e9f)) return 0;
  return static_cast<unsigned int>(static_cast<long long>(std::floor(f)) & 3);
}

}  // namespace

namespace {

LANE_KERNEL void run_bounds(const NeighbourList& list, const NeighbourList::Run& run, NeighbourList::Bounds& b) {
  const float* axes[3] = {list.x.data(), list.y.data(), list.z.data()};
  lane_int all_finite = lane_int{} == 0;
  lane_int offset;
  for (int l = 0; l < kLanes; ++l) offset[l] = l;
  for (int d = 0; d < 3; ++d) {
    lane_float lo = lane_splat(FLT_MAX), hi = lane_splat(-FLT_MAX);
    for (int e = run.begin; e < run.end; e += kLanes) {
      const lane_int inside = offset < run.end - e;
      const lane_float v = lane_load(axes[d] + e);
      all_finite &= ~inside | (lane_fabs(v) <= FLT_MAX);
      lo = inside & (v < lo) ? v : lo;
      hi = inside & (v > hi) ? v : hi;
    }
    b.lo[d] = lo[0];
    b.hi[d] = hi[0];
    for (int l = 1; l < kLanes; ++l) {
      b.lo[d] = lo[l] < b.lo[d] ? lo[l] : b.lo[d];
      b.hi[d] = hi[l] > b.hi[d] ? hi[l] : b.hi[d];
    }
  }
  b.finite = true;
  for (int l = 0; l < kLanes; ++l) b.finite = b.finite && all_finite[l] != 0;
}

}  // namespace

void NeighbourList::compute_bounds() {
  for (int r = 0; r < run_count; ++r) run_bounds(*this, runs[r], bounds[r]);
}

float squared_reach(float h) {
  float x = h * h;
  if (!std::isfinite(x) || !(x >= 0.0f)) return HUGE_VALF;
  // Square roots are correctly rounded and monotone, so walk from h*h to the boundary.
  while (std::sqrt(x) > h) x = std::nextafter(x, 0.0f);
  for (float next = std::nextafter(x, HUGE_VALF); std::sqrt(next) <= h && std::isfinite(next);
       next = std::nextafter(x, HUGE_VALF))
    x = next;
  return x;
}

void entries_in_reach(const CellBatch& batch, const NeighbourList& list, float reach2, std::vector<int>& entries) {
  entries.clear();
  const float* lanes[3] = {batch.x, batch.y, batch.z};
  float lo[3], hi[3];
  bool all_finite = reach2 < FLT_MAX;
  for (int d = 0; d < 3; ++d) {
    lo[d] = hi[d] = lanes[d][0];
    for (int l = 0; l < batch.count; ++l) {
      const float v = lanes[d][l];
      all_finite = all_finite && finite(v);
      lo[d] = v < lo[d] ? v : lo[d];
      hi[d] = v > hi[d] ? v : hi[d];
    }
  }
  const int size = list.size();
  if (!all_finite) {
    for (int e = 0; e < size; ++e) entries.push_back(e);
    return;
  }
  entries.resize(size + kLanes);
  int count = 0;
  // Runs lie back to back in the list; neighbouring runs within reach are filtered as one range.
  int range_begin = 0, range_end = 0;
  for (int r = 0; r <= list.run_count; ++r) {
    if (r < list.run_count) {
      const NeighbourList::Bounds& b = list.bounds[r];
      if (b.finite && beyond(b.lo, b.hi, lo, hi, reach2)) continue;
      if (list.runs[r].begin == range_end) {
        range_end = list.runs[r].end;
        continue;
      }
    }
    if (range_end > range_begin)
      count += entries_not_beyond(list, range_begin, range_end, lo, hi, reach2, entries.data() + count);
    if (r < list.run_count) {
      range_begin = list.runs[r].begin;
      range_end = list.runs[r].end;
    }
  }
  entries.resize(count);
}

void batch_order(const float3* positions, long long length, float3 grid_min, float inv_cell, std::vector<int>& order) {
  order.resize(length);
  if (length <= kLanes) {
    for (long long k = 0; k < length; ++k) order[k] = static_cast<int>(k);
    return;
  }
  // Counting sort by the Morton code of the quarter-cell coordinates.
  auto code = [&](long long k) {
    const float3 p = positions[k];
    const unsigned int qx = quarter(p.x, grid_min.x, inv_cell), qy = quarter(p.y, grid_min.y, inv_cell),
                       qz = quarter(p.z, grid_min.z, inv_cell);
    return (qx & 1) | (qy & 1) << 1 | (qz & 1) << 2 | (qx & 2) << 2 | (qy & 2) << 3 | (qz & 2) << 4;
  };
  int start[65] = {};
  for (long long k = 0; k < length; ++k) ++start[code(k) + 1];
  for (int c = 0; c < 64; ++c) start[c + 1] += start[c];
  for (long long k = 0; k < length; ++k) order[start[code(k)]++] = static_cast<int>(k);
}
