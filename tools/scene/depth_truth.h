#pragma once

#include <string>

namespace scene {

// Estimated depth maps against the ray-cast depth of a generated scene, at the pixels whose true
// surface point is seen by at least two views (its own and another, where that view's true depth
// at the point's pixel agrees within 1 %).
struct DepthTruthFigures {
  int views = 0;
  long seen = 0;                  // such pixels in all views
  long estimated = 0;             // of them, those with an estimated depth
  double median_error = 0;        // median of |estimate - truth| / truth over the estimated ones
  double within_1_percent = 0;    // share of the seen pixels estimated within 1 %
  double kept_within_1_percent = 0;  // share of the estimated ones within 1 %
  long background = 0;            // pixels where no surface is (true depth 0), all views
  long background_estimated = 0;  // of them, those given a depth
};

// Reads SCENE_DIR/view_NN.txt and the depth maps they name (the truth) and, for every view,
// DEPTH_DIR/view_NN.txt and its depth map (the estimate), until a scene view is missing. Throws
// std::runtime_error naming a file that cannot be read.
DepthTruthFigures compare_with_truth(const std::string& scene_dir, const std::string& depth_dir);

// A few readable lines.
std::string format_depth_truth(const DepthTruthFigures& f);

}  // namespace scene
