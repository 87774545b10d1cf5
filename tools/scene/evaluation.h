#pragma once

#include <string>
#include <vector>

#include "tools/scene/model_file.h"
#include "tools/scene/surface_error.h"

namespace scene {

// A model measured against the analytic scene it was made from, with distances in units of the
// pixel footprint at the scene's average depth (average depth / fx of the first view).
struct Evaluation {
  size_t points = 0;
  double footprint = 0;        // world size of one pixel at the average depth
  Accuracy accuracy;           // distances of the model points to the true surfaces
  double completeness_1 = 0;   // share of true samples with a model point within one footprint
  double completeness_2 = 0;   // the same within two footprints
};

// Reads scene_dir's ground_truth.ply, average_depth.txt and view_00.txt, and the model.
Evaluation evaluate_model(const std::string& scene_dir, const std::vector<ModelPoint>& model);

// A few readable lines.
std::string format_evaluation(const Evaluation& e);

}  // namespace scene
