#pragma once

#include <cstddef>
#include <vector>

#include "tools/scene/scene.h"
#include "tools/scene/scene_files.h"

// Measures of a reconstructed point set against the analytic scene, for tests and evaluation.
namespace scene {

struct Accuracy {
  size_t points = 0;
  double mean = 0, rms = 0, median = 0, max = 0;  // of the distances to the true surface
  double within = 0;  // fraction of points closer than the tolerance
};

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
