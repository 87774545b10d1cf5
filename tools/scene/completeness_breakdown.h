#pragma once

#include <string>
#include <vector>

#include "tools/scene/model_file.h"
#include "tools/scene/scene.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace scene {

// Where a model is complete and where not: completeness of each kind of surface, and of the true
// surface by how many views see it, at several distances.
struct CompletenessGroup {
  std::string name;
  size_t samples = 0;
  std::vector<double> completeness;  // one per distance
  size_t points = 0;                 // by surface: the model points nearest to it
  double median_distance = 0;        // and their median distance to it
};

struct CompletenessBreakdown {
  std::vector<double> distances;            // in length units
  std::vector<CompletenessGroup> surfaces;  // by kind of surface, in a fixed order; empty groups left out
  std::vector<CompletenessGroup> by_views;  // samples seen by 1, 2, 3, 4, and 5 or more views
  std::vector<double> f_scores;             // one per distance: of the share of points and of samples within it
};

// The surface group of a point on `shape`: "rods" for every rod, "sheet face 1" and "sheet face 2"
// for the two sides of a sheet (local x below and above 0, rims with their nearer side), the
// shape's name otherwise.
std::string surface_group(const Shape& shape, Vec3 point);

// How many of the cameras see each sample: it lies on their image, and the ray from the camera's
// centre meets no surface before it (which also rules out views of its back).
std::vector<int> views_seeing(const Scene& scene, const std::vector<SceneCamera>& cameras,
                              const std::vector<SurfaceSample>& samples);

// Per surface, a sample counts as covered by a model point within the distance that lies nearest
// to the same surface (and the same side of a sheet): points of the ground next to a rod do not
// make the rod complete. By views, any model point counts, as in the overall completeness.
CompletenessBreakdown break_down_completeness(const Scene& scene, const std::vector<SceneCamera>& cameras,
                                              const std::vector<SurfaceSample>& truth,
                                              const std::vector<ModelPoint>& model,
                                              const std::vector<double>& distances);

// The breakdown of a model of the generated scene in scene_dir (its kind, true cameras and
// ground_truth.ply).
CompletenessBreakdown break_down_scene(const std::string& scene_dir, const std::vector<ModelPoint>& model,
                                       const std::vector<double>& distances);

// The cameras a generated scene was rendered with: true_view_NN.txt where the scene has pose
// errors, view_NN.txt otherwise, from view 0 until one is missing.
std::vector<SceneCamera> read_scene_cameras(const std::string& scene_dir);

// A table of a few lines.
std::string format_breakdown(const CompletenessBreakdown& b);

}  // namespace scene
