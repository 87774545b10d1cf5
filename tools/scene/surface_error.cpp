#include "tools/scene/surface_error.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <unordered_map>

#include "tools/scene/surface_distance.h"

namespace scene {
namespace {

struct Cell {
  int64_t x, y, z;
  bool operator==(const Cell&) const = default;
};

struct CellHash {
  size_t operator()(const Cell& c) const {
    return static_cast<size_t>(c.x * 73856093LL ^ c.y * 19349663LL ^ c.z * 83492791LL);
  }
};

Cell cell_of(Vec3 p, double size) {
  return {static_cast<int64_t>(std::floor(p.x / size)), static_cast<int64_t>(std::floor(p.y / size)),
          static_cast<int64_t>(std::floor(p.z / size))};
}

}  // namespace

Accuracy measure_accuracy(const Scene& scene, const std::vector<Vec3>& points, double tolerance) {
  Accuracy a;
  a.points = points.size();
  if (points.empty()) return a;
  std::vector<double> d(points.size());
  for (size_t i = 0; i < points.size(); ++i) d[i] = distance_to_surface(scene, points[i]);
  double sum = 0, sum2 = 0;
  size_t within = 0;
  for (double v : d) {
    sum += v;
    sum2 += v * v;
    a.max = std::max(a.max, v);
    within += v < tolerance;
  }
  a.mean = sum / d.size();
  a.rms = std::sqrt(sum2 / d.size());
  a.within = static_cast<double>(within) / d.size();
  std::nth_element(d.begin(), d.begin() + d.size() / 2, d.end());
  a.median = d[d.size() / 2];
  return a;
}

std::vector<char> covered_samples(const std::vector<Vec3>& samples, const std::vector<Vec3>& points, double tolerance,
                                  const std::vector<int>& sample_labels, const std::vector<int>& point_labels) {
  if (!(tolerance > 0)) throw std::runtime_error("measure_completeness: the tolerance must be positive");
  const bool labelled = !sample_labels.empty();
  // Points bucketed in cells of the tolerance's size: any point within the tolerance of a sample
  // lies in the sample's cell or one of its 26 neighbours.
  std::unordered_map<Cell, std::vector<size_t>, CellHash> grid;
  for (size_t i = 0; i < points.size(); ++i) grid[cell_of(points[i], tolerance)].push_back(i);
  std::vector<char> covered(samples.size(), 0);
#pragma omp parallel for schedule(dynamic, 1024)
  for (size_t k = 0; k < samples.size(); ++k) {
    const Vec3 s = samples[k];
    const Cell c = cell_of(s, tolerance);
    bool found = false;
    for (int64_t dx = -1; dx <= 1 && !found; ++dx)
      for (int64_t dy = -1; dy <= 1 && !found; ++dy)
        for (int64_t dz = -1; dz <= 1 && !found; ++dz) {
          const auto it = grid.find({c.x + dx, c.y + dy, c.z + dz});
          if (it == grid.end()) continue;
          for (size_t i : it->second)
            if (length(points[i] - s) < tolerance && (!labelled || point_labels[i] == sample_labels[k])) {
              found = true;
              break;
            }
        }
    covered[k] = found;
  }
  return covered;
}

double measure_completeness(const std::vector<SurfaceSample>& truth, const std::vector<Vec3>& points,
                            double tolerance) {
  if (!(tolerance > 0)) throw std::runtime_error("measure_completeness: the tolerance must be positive");
  if (truth.empty()) return 0.0;
  std::vector<Vec3> samples;
  samples.reserve(truth.size());
  for (const SurfaceSample& s : truth) samples.push_back(s.point);
  const std::vector<char> covered = covered_samples(samples, points, tolerance);
  return static_cast<double>(std::count(covered.begin(), covered.end(), 1)) / truth.size();
}

}  // namespace scene
