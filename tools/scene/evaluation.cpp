#include "tools/scene/evaluation.h"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "tools/scene/scene.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"
#include "tools/scene/scene_kinds.h"
#include "tools/scene/sample_grid.h"
#include "tools/scene/surface_lookup.h"

namespace scene {
namespace {

double read_average_depth(const std::string& scene_dir) {
  std::ifstream depth_file(scene_dir + "/average_depth.txt");
  double average_depth = 0;
  if (!(depth_file >> average_depth)) throw std::runtime_error("cannot read " + scene_dir + "/average_depth.txt");
  return average_depth;
}

std::vector<Vec3> positions(const std::vector<ModelPoint>& model) {
  std::vector<Vec3> points(model.size());
  for (size_t i = 0; i < model.size(); ++i) points[i] = model[i].point;
  return points;
}

std::vector<double> surface_distances(const SurfaceLookup& lookup, const std::vector<Vec3>& points) {
  std::vector<double> d(points.size());
#pragma omp parallel for schedule(static)
  for (size_t i = 0; i < points.size(); ++i) d[i] = nearest_surface(lookup, points[i]).distance;
  return d;
}

// The points farther than `distance` from every true surface.
std::vector<Vec3> off_the_surfaces(const std::vector<Vec3>& points, const std::vector<double>& d, double distance) {
  std::vector<Vec3> result;
  for (size_t i = 0; i < points.size(); ++i)
    if (d[i] > distance) result.push_back(points[i]);
  return result;
}

}  // namespace

SheetFaces measure_sheet_faces(const Scene& scene, const std::vector<ModelPoint>& model) {
  SheetFaces faces;
  const int index = find_shape(scene, "sheet");
  if (index < 0) return faces;
  const Shape& sheet = scene.shapes[index];
  for (const ModelPoint& p : model) {
    const Vec3 local = to_local(sheet, p.point);
    // The sheet's thin axis is its local x; keep away from its rims.
    if (std::fabs(local.y) > 0.8 * sheet.size.y || std::fabs(local.z) > 0.8 * sheet.size.z) continue;
    if (std::fabs(local.x) > 0.02) continue;
    const int side = local.x > 0 ? 1 : 0;
    const Vec3 n = to_local(sheet, sheet.center + p.normal);
    ++faces.points[side];
    faces.facing_own_side[side] += (side == 1) == (n.x > 0);
  }
  return faces;
}

Evaluation evaluate_model(const std::string& scene_dir, const ModelBlocks& model, const std::vector<double>& distances) {
  const double average_depth = read_average_depth(scene_dir);
  const ViewFile first = read_view_file(scene_dir + "/" + view_file_name(0));
  const Scene scene = scene_of_directory(scene_dir);
  const SurfaceLookup lookup = make_surface_lookup(scene);

  Evaluation e;
  e.points = model.points;
  e.footprint = average_depth / first.K[0];

  // Completeness: a grid of the true samples per distance, marked by the model's points as they
  // stream past.
  std::vector<double> completeness_at = {e.footprint, 2 * e.footprint};
  completeness_at.insert(completeness_at.end(), distances.begin(), distances.end());
  std::vector<SampleGrid> grids;
  {
    const std::vector<Vec3> truth = positions(read_model_ply(scene_dir + "/ground_truth.ply"));
    for (double d : completeness_at) grids.push_back(make_sample_grid(truth, d));
  }
  // Planted outliers lying off the surfaces count as removed when no model point off the surfaces
  // lies within one footprint of them.
  SampleGrid stray;
  const std::string outlier_file = scene_dir + "/outliers.ply";
  const bool planted = std::filesystem::exists(outlier_file);
  if (planted) {
    const std::vector<Vec3> points = positions(read_model_ply(outlier_file));
    stray = make_sample_grid(off_the_surfaces(points, surface_distances(lookup, points), 2 * e.footprint), e.footprint);
    e.planted_outliers = stray.samples.size();
  }

  std::vector<double> accuracy_at = {e.footprint};
  accuracy_at.insert(accuracy_at.end(), distances.begin(), distances.end());
  AccuracyTally tally = make_accuracy_tally(model.points, accuracy_at);
  model.for_each_block([&](const std::vector<ModelPoint>& block) {
    const std::vector<Vec3> points = positions(block);
    const std::vector<double> d = surface_distances(lookup, points);
    add_distances(tally, d);
    for (SampleGrid& grid : grids) mark_covered(grid, points);
    if (planted) mark_covered(stray, off_the_surfaces(points, d, 2 * e.footprint));
    const SheetFaces faces = measure_sheet_faces(scene, block);
    for (int side = 0; side < 2; ++side) {
      e.sheet.points[side] += faces.points[side];
      e.sheet.facing_own_side[side] += faces.facing_own_side[side];
    }
  });
  if (tally.points != model.points) throw std::runtime_error("the model changed while it was measured");
  // The median's further passes, when the distances did not fit its buffer.
  while (!median_known(tally))
    model.for_each_block([&](const std::vector<ModelPoint>& block) {
      add_distances(tally, surface_distances(lookup, positions(block)));
    });

  const auto share = [](const SampleGrid& g) {
    return g.samples.empty() ? 0.0 : static_cast<double>(covered_count(g)) / g.samples.size();
  };
  e.accuracy = accuracy_of(tally, 0);
  e.completeness_1 = share(grids[0]);
  e.completeness_2 = share(grids[1]);
  for (size_t k = 0; k < distances.size(); ++k)
    e.within.push_back({distances[k], share(grids[2 + k]), accuracy_of(tally, 1 + k).within});
  if (e.planted_outliers > 0) e.outliers_removed = 1.0 - share(stray);
  return e;
}

Evaluation evaluate_model(const std::string& scene_dir, const std::vector<ModelPoint>& model,
                          const std::vector<double>& distances) {
  return evaluate_model(scene_dir, model_blocks(model), distances);
}

size_t evaluation_bytes(const std::string& scene_dir, size_t distances) {
  // Per true sample: read with its normal and kept as a position (72 bytes), and in each grid
  // its copy, place, flag and cell (about 50); per point of a block: the point read
  // and its bytes, position, distance and place in the cell order (about 130); the median's
  // buffer and the program.
  const size_t samples = open_model_ply(scene_dir + "/ground_truth.ply").count;
  return samples * (72 + 50 * (2 + distances)) + kModelBlockPoints * 130 + (size_t{96} << 20);
}

std::string format_evaluation(const Evaluation& e) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(2);
  out << "points:       " << e.points << "\n";
  out << "footprint:    " << 1000 * e.footprint << " mm (one pixel at the average depth)\n";
  out << "accuracy:     median " << 1000 * e.accuracy.median << " mm, mean " << 1000 * e.accuracy.mean
      << " mm, rms " << 1000 * e.accuracy.rms << " mm, " << 100 * e.accuracy.within
      << " % within one footprint\n";
  out << "completeness: " << 100 * e.completeness_1 << " % of the true surface within one footprint, "
      << 100 * e.completeness_2 << " % within two\n";
  for (const WithinDistance& w : e.within)
    out << "within " << 1000 * w.distance << " mm: " << 100 * w.completeness << " % of the true surface, "
        << 100 * w.accuracy << " % of the points\n";
  out << "sheet:        " << e.sheet.points[0] << " and " << e.sheet.points[1] << " points on its two faces, "
      << e.sheet.facing_own_side[0] << " and " << e.sheet.facing_own_side[1] << " facing their own side\n";
  if (e.planted_outliers > 0)
    out << "outliers:     " << 100 * e.outliers_removed << " % of " << e.planted_outliers
        << " planted points removed (no model point off the surfaces within one footprint)\n";
  return out.str();
}

Agreement measure_agreement(const std::string& scene_dir, const std::vector<ModelPoint>& a,
                            const std::vector<ModelPoint>& b) {
  Agreement g;
  g.footprint = read_average_depth(scene_dir) / read_view_file(scene_dir + "/" + view_file_name(0)).K[0];
  const std::vector<ModelPoint>* models[2] = {&a, &b};
  for (int k = 0; k < 2; ++k) {
    std::vector<SurfaceSample> own;
    for (const ModelPoint& p : *models[k]) own.push_back({p.point, p.normal});
    std::vector<Vec3> other;
    for (const ModelPoint& p : *models[1 - k]) other.push_back(p.point);
    g.points[k] = own.size();
    g.within_tenth[k] = measure_completeness(own, other, 0.1 * g.footprint);
    g.within_one[k] = measure_completeness(own, other, g.footprint);
  }
  return g;
}

std::string format_agreement(const Agreement& g) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(2);
  for (int k = 0; k < 2; ++k)
    out << (k == 0 ? "model:   " : "against: ") << g.points[k] << " points, " << 100 * g.within_tenth[k]
        << " % with a point of the other within 0.1 footprint, " << 100 * g.within_one[k] << " % within 1\n";
  return out.str();
}

}  // namespace scene
