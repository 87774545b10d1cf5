#pragma once

#include <cstddef>
#include <vector>

#include "tools/scene/order_statistic.h"
#include "tools/scene/scene.h"
#include "tools/scene/scene_files.h"

// Measures of a reconstructed point set against the analytic scene, for tests and evaluation.
namespace scene {

struct Accuracy {
  size_t points = 0;
  double mean = 0, rms = 0, median = 0, max = 0;  // of the distances to the true surface
  double within = 0;  // fraction of points closer than the tolerance
};

// Accuracy at several tolerances from distances that come a block at a time. The median needs the
// same distances again, in further passes, while `median_known` is false.
struct AccuracyTally {
  size_t points = 0;  // of the first pass
  double sum = 0, sum2 = 0, max = 0;
  std::vector<double> tolerances;
  std::vector<size_t> within;  // per tolerance
  OrderStatistic median;
  bool first_pass = true;
};

// For `points` distances in all.
AccuracyTally make_accuracy_tally(size_t points, const std::vector<double>& tolerances);
void add_distances(AccuracyTally& tally, const std::vector<double>& distances);
// Ends a pass over all the distances: true when the median is known.
bool median_known(AccuracyTally& tally);
// The accuracy at tolerance number `tolerance`, once the median is known.
Accuracy accuracy_of(const AccuracyTally& tally, size_t tolerance);

// Distances of the points to the nearest true surface.
Accuracy measure_accuracy(const Scene& scene, const std::vector<Vec3>& points, double tolerance);

// For each sample, whether a point lies closer than the tolerance. With labels (one per sample and
// one per point), only a point of the sample's own label counts.
std::vector<char> covered_samples(const std::vector<Vec3>& samples, const std::vector<Vec3>& points, double tolerance,
                                  const std::vector<int>& sample_labels = {}, const std::vector<int>& point_labels = {});

// Fraction of the true samples that have a point closer than the tolerance (0 for no samples).
double measure_completeness(const std::vector<SurfaceSample>& truth, const std::vector<Vec3>& points,
                            double tolerance);

}  // namespace scene
