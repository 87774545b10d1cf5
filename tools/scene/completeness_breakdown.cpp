#include "tools/scene/completeness_breakdown.h"

#include <algorithm>
#include <filesystem>
#include <iomanip>
#include <map>
#include <sstream>

#include "formats/view_file.h"
#include "tools/scene/ray_cast.h"
#include "tools/scene/street.h"
#include "tools/scene/surface_distance.h"
#include "tools/scene/surface_error.h"

namespace scene {
namespace {

// The view file's pose is the pinhole pose turned 180 degrees about the optical axis.
SceneCamera camera_from_view_file(const ViewFile& v) {
  SceneCamera c;
  c.width = v.width;
  c.height = v.height;
  c.fx = v.K[0];
  c.cx = v.K[2];
  c.fy = v.K[4];
  c.cy = v.K[5];
  const double flip[3] = {-1, -1, 1};
  for (int i = 0; i < 9; ++i) c.R.m[i] = flip[i / 3] * v.R[i];
  c.t = {-v.t[0], -v.t[1], v.t[2]};
  c.center = -transpose_times(c.R, c.t);
  return c;
}

bool sees(const Scene& scene, const SceneCamera& camera, Vec3 point) {
  const Vec3 c = camera.R * point + camera.t;
  if (!(c.z > 0)) return false;
  const double x = camera.fx * c.x / c.z + camera.cx, y = camera.fy * c.y / c.z + camera.cy;
  if (!(x >= -0.5 && x < camera.width - 0.5 && y >= -0.5 && y < camera.height - 0.5)) return false;
  // The ray reaches the point at t = 1; a hit before it (beyond a tenth of a millimetre) hides it.
  const Vec3 ray = point - camera.center;
  const Hit hit = cast_ray(scene, camera.center, ray);
  return hit.found && (1.0 - hit.t) * length(ray) < 1e-4;
}

// Groups in the order they are printed.
const std::vector<std::string>& group_order() {
  static const std::vector<std::string> order = {"ground",       "sphere",       "cylinder", "box",
                                                 "sheet face 1", "sheet face 2", "rods"};
  return order;
}

// One label per shape, and per side for sheets, so that a point covers only its own surface.
int surface_label(const Scene& scene, Vec3 point, int shape) {
  return 2 * shape + (surface_group(scene.shapes[shape], point) == "sheet face 2" ? 1 : 0);
}

}  // namespace

std::string surface_group(const Shape& shape, Vec3 point) {
  if (shape.name.rfind("rod", 0) == 0) return "rods";
  if (shape.name.rfind("sheet", 0) == 0) return to_local(shape, point).x > 0 ? "sheet face 2" : "sheet face 1";
  return shape.name;
}

std::vector<int> views_seeing(const Scene& scene, const std::vector<SceneCamera>& cameras,
                              const std::vector<SurfaceSample>& samples) {
  std::vector<int> count(samples.size(), 0);
#pragma omp parallel for schedule(dynamic, 256)
  for (size_t i = 0; i < samples.size(); ++i)
    for (const SceneCamera& camera : cameras) count[i] += sees(scene, camera, samples[i].point);
  return count;
}

CompletenessBreakdown break_down_completeness(const Scene& scene, const std::vector<SceneCamera>& cameras,
                                              const std::vector<SurfaceSample>& truth,
                                              const std::vector<ModelPoint>& model,
                                              const std::vector<double>& distances) {
  CompletenessBreakdown b;
  b.distances = distances;
  std::vector<Vec3> samples(truth.size()), points(model.size());
  std::vector<int> sample_labels(truth.size()), point_labels(model.size());
  std::vector<double> point_distance(model.size());
  std::vector<std::string> sample_group(truth.size());
#pragma omp parallel for schedule(dynamic, 1024)
  for (size_t i = 0; i < model.size(); ++i) {
    points[i] = model[i].point;
    const SurfacePoint nearest = closest_surface(scene, points[i]);
    point_distance[i] = nearest.distance;
    point_labels[i] = surface_label(scene, points[i], nearest.shape);
  }
  for (size_t k = 0; k < truth.size(); ++k) {
    samples[k] = truth[k].point;
    const int shape = closest_surface(scene, samples[k]).shape;
    sample_labels[k] = surface_label(scene, samples[k], shape);
    sample_group[k] = surface_group(scene.shapes[shape], samples[k]);
  }
  const std::vector<int> seen_by = views_seeing(scene, cameras, truth);
  const auto view_bin = [](int views) { return std::clamp(views, 1, 5) - 1; };

  std::map<std::string, CompletenessGroup> surfaces;
  std::map<std::string, std::vector<double>> distances_by_surface;
  for (size_t i = 0; i < model.size(); ++i)
    distances_by_surface[surface_group(scene.shapes[point_labels[i] / 2], points[i])].push_back(point_distance[i]);
  for (auto& [name, d] : distances_by_surface) {
    std::nth_element(d.begin(), d.begin() + d.size() / 2, d.end());
    surfaces[name].points = d.size();
    surfaces[name].median_distance = d[d.size() / 2];
  }
  b.by_views.resize(5);
  for (size_t k = 0; k < truth.size(); ++k) {
    ++surfaces[sample_group[k]].samples;
    ++b.by_views[view_bin(seen_by[k])].samples;
  }
  for (double d : distances) {
    const std::vector<char> own = covered_samples(samples, points, d, sample_labels, point_labels);
    const std::vector<char> any = covered_samples(samples, points, d);
    std::map<std::string, size_t> covered_by_surface;
    std::vector<size_t> covered_by_views(5, 0);
    size_t covered = 0;
    for (size_t k = 0; k < truth.size(); ++k) {
      covered_by_surface[sample_group[k]] += own[k];
      covered_by_views[view_bin(seen_by[k])] += any[k];
      covered += any[k];
    }
    for (auto& [name, group] : surfaces)
      group.completeness.push_back(group.samples ? static_cast<double>(covered_by_surface[name]) / group.samples : 0.0);
    for (int v = 0; v < 5; ++v)
      b.by_views[v].completeness.push_back(
          b.by_views[v].samples ? static_cast<double>(covered_by_views[v]) / b.by_views[v].samples : 0.0);
    const double recall = truth.empty() ? 0.0 : static_cast<double>(covered) / truth.size();
    const double precision =
        model.empty() ? 0.0
                      : static_cast<double>(std::count_if(point_distance.begin(), point_distance.end(),
                                                          [d](double e) { return e < d; })) /
                            model.size();
    b.f_scores.push_back(precision + recall > 0 ? 2 * precision * recall / (precision + recall) : 0.0);
  }
  for (const std::string& name : group_order()) {
    const auto it = surfaces.find(name);
    if (it == surfaces.end()) continue;
    b.surfaces.push_back(it->second);
    b.surfaces.back().name = name;
  }
  for (int v = 0; v < 5; ++v)
    b.by_views[v].name = v == 4 ? "5+ views" : std::to_string(v + 1) + (v == 0 ? " view" : " views");
  return b;
}

std::vector<SceneCamera> read_scene_cameras(const std::string& scene_dir) {
  std::vector<SceneCamera> cameras;
  for (int v = 0;; ++v) {
    const std::string true_view = scene_dir + "/" + true_view_file_name(v);
    const std::string view = scene_dir + "/" + view_file_name(v);
    if (std::filesystem::exists(true_view))
      cameras.push_back(camera_from_view_file(read_view_file(true_view)));
    else if (std::filesystem::exists(view))
      cameras.push_back(camera_from_view_file(read_view_file(view)));
    else
      return cameras;
  }
}

CompletenessBreakdown break_down_scene(const std::string& scene_dir, const std::vector<ModelPoint>& model,
                                       const std::vector<double>& distances) {
  std::vector<SurfaceSample> truth;
  for (const ModelPoint& p : read_model_ply(scene_dir + "/ground_truth.ply")) truth.push_back({p.point, p.normal});
  return break_down_completeness(scene_of_directory(scene_dir), read_scene_cameras(scene_dir), truth, model,
                                 distances);
}

std::string format_breakdown(const CompletenessBreakdown& b) {
  std::ostringstream out;
  out << std::fixed << std::setprecision(2);
  const auto row = [&](const CompletenessGroup& g, bool accuracy) {
    out << "  " << std::left << std::setw(14) << g.name << std::right << std::setw(9) << g.samples;
    for (double c : g.completeness) out << std::setw(9) << 100 * c << " %";
    if (accuracy) out << std::setw(10) << g.points << std::setw(9) << 1000 * g.median_distance << " mm";
    out << "\n";
  };
  const auto header = [&](const std::string& title, bool accuracy) {
    out << title << std::setw(25 - static_cast<int>(title.size())) << "samples";
    for (double d : b.distances) out << std::setw(8) << 1000 * d << " mm";
    if (accuracy) out << std::setw(10) << "points" << std::setw(12) << "median";
    out << "\n";
  };
  out << "completeness (share of the true samples with a model point within the distance) and accuracy\n"
         "(model points nearest to each surface, median distance to it):\n";
  header("by surface:", true);
  for (const CompletenessGroup& g : b.surfaces) row(g, true);
  header("by views:", false);
  for (const CompletenessGroup& g : b.by_views) row(g, false);
  out << "F-score:";
  for (size_t i = 0; i < b.distances.size(); ++i)
    out << (i ? ", " : " ") << std::setprecision(3) << b.f_scores[i] << std::setprecision(2) << " at "
        << 1000 * b.distances[i] << " mm";
  out << "\n";
  return out.str();
}

}  // namespace scene
