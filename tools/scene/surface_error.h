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

// Fraction of the true samples that have a point closer than the tolerance (0 for no samples).
double measure_completeness(const std::vector<SurfaceSample>& truth, const std::vector<Vec3>& points,
                            double tolerance);

}  // namespace scene
