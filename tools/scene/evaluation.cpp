#include "tools/scene/evaluation.h"

#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "tools/scene/scene.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace scene {

Evaluation evaluate_model(const std::string& scene_dir, const std::vector<ModelPoint>& model) {
  std::ifstream depth_file(scene_dir + "/average_depth.txt");
  double average_depth = 0;
  if (!(depth_file >> average_depth)) throw std::runtime_error("cannot read " + scene_dir + "/average_depth.txt");
  const ViewFile first = read_view_file(scene_dir + "/" + view_file_name(0));

  std::vector<SurfaceSample> truth;
  for (const ModelPoint& p : read_model_ply(scene_dir + "/ground_truth.ply")) truth.push_back({p.point, p.normal});
  std::vector<Vec3> points;
  points.reserve(model.size());
  for (const ModelPoint& p : model) points.push_back(p.point);

  Evaluation e;
  e.points = points.size();
  e.footprint = average_depth / first.K[0];
  e.accuracy = measure_accuracy(make_default_scene(), points, e.footprint);
  e.completeness_1 = measure_completeness(truth, points, e.footprint);
  e.completeness_2 = measure_completeness(truth, points, 2 * e.footprint);
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
  return out.str();
}

}  // namespace scene
