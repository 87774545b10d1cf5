#pragma once

#include <string>
#include <vector>

#include "tools/scene/model_blocks.h"
#include "tools/scene/model_file.h"
#include "tools/scene/surface_error.h"

namespace scene {

// Completeness and accuracy at one distance given in length units.
struct WithinDistance {
  double distance = 0;
  double completeness = 0;  // share of true samples with a model point closer than the distance
  double accuracy = 0;      // share of model points closer than the distance to the true surfaces
};

// Model points on the two large faces of the thin sheet, away from its rims, and how many of
// them have normals facing their own side.
struct SheetFaces {
  size_t points[2] = {0, 0};
  size_t facing_own_side[2] = {0, 0};
};

// A model measured against the analytic scene it was made from, with distances in units of the
// pixel footprint at the scene's average depth (average depth / fx of the first view).
struct Evaluation {
  size_t points = 0;
  double footprint = 0;        // world size of one pixel at the average depth
  Accuracy accuracy;           // distances of the model points to the true surfaces
  double completeness_1 = 0;   // share of true samples with a model point within one footprint
  double completeness_2 = 0;   // the same within two footprints
  std::vector<WithinDistance> within;  // at the distances asked for, in their order
  // With planted outliers (outliers.ply in the scene): those lying more than two footprints off
  // the true surfaces, and the share of them that no model point off the surfaces (by more than
  // two footprints) lies within one footprint of.
  size_t planted_outliers = 0;
  double outliers_removed = 0;
  SheetFaces sheet;
};

// The sheet's faces in a model: points within 2 cm of the sheet's mid-plane and inside 80 % of its
// extent, split by side.
SheetFaces measure_sheet_faces(const Scene& scene, const std::vector<ModelPoint>& model);

// Reads scene_dir's ground_truth.ply, average_depth.txt, view_00.txt and outliers.ply when it is
// there, and the model; measures completeness and accuracy also at each of `distances`. The model
// streams past block by block (twice or more only when its distances do not fit the median's
// buffer); what is held grows with the true samples, not with the model.
Evaluation evaluate_model(const std::string& scene_dir, const ModelBlocks& model, const std::vector<double>& distances = {});
Evaluation evaluate_model(const std::string& scene_dir, const std::vector<ModelPoint>& model,
                          const std::vector<double>& distances = {});

// About the memory evaluate_model needs for a model file of the scene in scene_dir, measured at
// `distances` more: the grids of the true samples and one block of the model.
size_t evaluation_bytes(const std::string& scene_dir, size_t distances);

// A few readable lines.
std::string format_evaluation(const Evaluation& e);

// How closely two models of one scene agree: the share of each one's points that have a point of
// the other within 0.1 and within 1 pixel footprint at the average depth.
struct Agreement {
  size_t points[2] = {0, 0};
  double footprint = 0;
  double within_tenth[2] = {0, 0};
  double within_one[2] = {0, 0};
};
Agreement measure_agreement(const std::string& scene_dir, const std::vector<ModelPoint>& a,
                            const std::vector<ModelPoint>& b);
std::string format_agreement(const Agreement& agreement);

}  // namespace scene
