#include "tools/scene/surface_error.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "tools/scene/sample_grid.h"
#include "tools/scene/surface_distance.h"

namespace scene {

AccuracyTally make_accuracy_tally(size_t points, const std::vector<double>& tolerances) {
  AccuracyTally t;
  t.tolerances = tolerances;
  t.within.assign(tolerances.size(), 0);
  t.median = make_order_statistic(points / 2);
  t.median.done = points == 0;
  return t;
}

void add_distances(AccuracyTally& t, const std::vector<double>& distances) {
  if (t.first_pass) {
    for (double v : distances) {
      t.sum += v;
      t.sum2 += v * v;
      t.max = std::max(t.max, v);
      for (size_t k = 0; k < t.tolerances.size(); ++k) t.within[k] += v < t.tolerances[k];
    }
    t.points += distances.size();
  }
  if (!t.median.done)
    for (double v : distances) add_value(t.median, v);
}

bool median_known(AccuracyTally& t) {
  t.first_pass = false;
  return t.median.done || end_pass(t.median);
}

Accuracy accuracy_of(const AccuracyTally& t, size_t tolerance) {
  Accuracy a;
  a.points = t.points;
  if (t.points == 0) return a;
  a.mean = t.sum / t.points;
  a.rms = std::sqrt(t.sum2 / t.points);
  a.max = t.max;
  a.within = static_cast<double>(t.within[tolerance]) / t.points;
  a.median = t.median.value;
  return a;
}

Accuracy measure_accuracy(const Scene& scene, const std::vector<Vec3>& points, double tolerance) {
  std::vector<double> d(points.size());
  for (size_t i = 0; i < points.size(); ++i) d[i] = distance_to_surface(scene, points[i]);
  AccuracyTally tally = make_accuracy_tally(points.size(), {tolerance});
  do add_distances(tally, d);
  while (!median_known(tally));
  return accuracy_of(tally, 0);
}

std::vector<char> covered_samples(const std::vector<Vec3>& samples, const std::vector<Vec3>& points, double tolerance,
                                  const std::vector<int>& sample_labels, const std::vector<int>& point_labels) {
  SampleGrid grid = make_sample_grid(samples, tolerance, sample_labels);
  mark_covered(grid, points, point_labels);
  return covered_in_given_order(grid);
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
