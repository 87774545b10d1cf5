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
#include "tools/scene/surface_distance.h"

namespace scene {
namespace {

// The points farther than `distance` from every true surface.
std::vector<Vec3> off_the_surfaces(const Scene& scene, const std::vector<Vec3>& points, double distance) {
  std::vector<char> off(points.size());
#pragma omp parallel for schedule(static)
  for (size_t i = 0; i < points.size(); ++i) off[i] = distance_to_surface(scene, points[i]) > distance;
  std::vector<Vec3> result;
  for (size_t i = 0; i < points.size(); ++i)
    if (off[i]) result.push_back(points[i]);
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

Evaluation evaluate_model(const std::string& scene_dir, const std::vector<ModelPoint>& model,
                          const std::vector<double>& distances) {
  std::ifstream depth_file(scene_dir + "/average_depth.txt");
  double average_depth = 0;
  if (!(depth_file >> average_depth)) throw std::runtime_error("cannot read " + scene_dir + "/average_depth.txt");
  const ViewFile first = read_view_file(scene_dir + "/" + view_file_name(0));
  const Scene scene = scene_of_directory(scene_dir);

  std::vector<SurfaceSample> truth;
  for (const ModelPoint& p : read_model_ply(scene_dir + "/ground_truth.ply")) truth.push_back({p.point, p.normal});
  std::vector<Vec3> points;
  points.reserve(model.size());
  for (const ModelPoint& p : model) points.push_back(p.point);

  Evaluation e;
  e.points = points.size();
  e.footprint = average_depth / first.K[0];
  e.accuracy = measure_accuracy(scene, points, e.footprint);
  e.completeness_1 = measure_completeness(truth, points, e.footprint);
  e.completeness_2 = measure_completeness(truth, points, 2 * e.footprint);
  for (double distance : distances)
    e.within.push_back({distance, measure_completeness(truth, points, distance),
                        measure_accuracy(scene, points, distance).within});

  e.sheet = measure_sheet_faces(scene, model);

  const std::string outlier_file = scene_dir + "/outliers.ply";
  if (std::filesystem::exists(outlier_file)) {
    std::vector<Vec3> planted;
    for (const ModelPoint& p : read_model_ply(outlier_file)) planted.push_back(p.point);
    std::vector<SurfaceSample> stray;
    for (const Vec3& p : off_the_surfaces(scene, planted, 2 * e.footprint)) stray.push_back({p, Vec3{}});
    e.planted_outliers = stray.size();
    if (!stray.empty())
      e.outliers_removed =
          1.0 - measure_completeness(stray, off_the_surfaces(scene, points, 2 * e.footprint), e.footprint);
  }
  return e;
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
  std::ifstream depth_file(scene_dir + "/average_depth.txt");
  double average_depth = 0;
  if (!(depth_file >> average_depth)) throw std::runtime_error("cannot read " + scene_dir + "/average_depth.txt");
  Agreement g;
  g.footprint = average_depth / read_view_file(scene_dir + "/" + view_file_name(0)).K[0];
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
