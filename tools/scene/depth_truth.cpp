#include "tools/scene/depth_truth.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>
#include <vector>

#include "formats/depth_png.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace scene {
namespace {

struct TruthView {
  ViewFile file;
  CMatrix<unsigned short> depth;
  double at(int x, int y) const { return thousandths_to_depth(depth(x, y)); }
};

// True when view v sees the world point p: it lands inside v, whose depth there agrees within 1 %.
bool sees(const TruthView& v, Vec3 p) {
  const double* R = v.file.R;
  const double cx = R[0] * p.x + R[1] * p.y + R[2] * p.z + v.file.t[0];
  const double cy = R[3] * p.x + R[4] * p.y + R[5] * p.z + v.file.t[1];
  const double cz = R[6] * p.x + R[7] * p.y + R[8] * p.z + v.file.t[2];
  if (!(cz > 0)) return false;
  // The inverse of back_project: x = cx_K - fx X / Z.
  const long x = std::lround(v.file.K[2] - v.file.K[0] * cx / cz), y = std::lround(v.file.K[5] - v.file.K[4] * cy / cz);
  if (x < 0 || y < 0 || x >= v.depth.xSize || y >= v.depth.ySize) return false;
  const double d = v.at(static_cast<int>(x), static_cast<int>(y));
  return d > 0 && std::fabs(d - cz) < 0.01 * cz;
}

}  // namespace

DepthTruthFigures compare_with_truth(const std::string& scene_dir, const std::string& depth_dir) {
  std::vector<TruthView> truth;
  for (int i = 0; std::filesystem::exists(scene_dir + "/" + view_file_name(i)); ++i) {
    TruthView& t = truth.emplace_back();
    t.file = read_view_file(scene_dir + "/" + view_file_name(i));
    t.depth = read_depth_png(t.file.depth_path);
  }
  DepthTruthFigures f;
  f.views = static_cast<int>(truth.size());
  std::vector<double> errors;
  long within = 0;
  for (size_t i = 0; i < truth.size(); ++i) {
    const CMatrix<unsigned short> estimate =
        read_depth_png(read_view_file(depth_dir + "/" + view_file_name(static_cast<int>(i))).depth_path);
    const TruthView& t = truth[i];
    for (int y = 0; y < t.depth.ySize; ++y)
      for (int x = 0; x < t.depth.xSize; ++x) {
        const double d = t.at(x, y);
        if (d <= 0) {
          ++f.background;
          f.background_estimated += estimate(x, y) > 0;
          continue;
        }
        const Vec3 p = back_project(t.file, x, y, d);
        bool seen = false;
        for (size_t j = 0; j < truth.size() && !seen; ++j) seen = j != i && sees(truth[j], p);
        if (!seen) continue;
        ++f.seen;
        const double e = thousandths_to_depth(estimate(x, y));
        if (e <= 0) continue;
        errors.push_back(std::fabs(e - d) / d);
        within += errors.back() <= 0.01;
      }
  }
  f.estimated = static_cast<long>(errors.size());
  if (!errors.empty()) {
    std::nth_element(errors.begin(), errors.begin() + static_cast<long>(errors.size() / 2), errors.end());
    f.median_error = errors[errors.size() / 2];
  }
  f.within_1_percent = f.seen > 0 ? static_cast<double>(within) / static_cast<double>(f.seen) : 0;
  f.kept_within_1_percent = f.estimated > 0 ? static_cast<double>(within) / static_cast<double>(f.estimated) : 0;
  return f;
}

std::string format_depth_truth(const DepthTruthFigures& f) {
  const auto percent = [](long part, long whole) {
    return whole > 0 ? 100.0 * static_cast<double>(part) / static_cast<double>(whole) : 0.0;
  };
  std::ostringstream out;
  out.precision(4);
  out << "views: " << f.views << "\n"
      << "pixels seen by two views: " << f.seen << ", with an estimate: " << f.estimated << " ("
      << percent(f.estimated, f.seen) << " %)\n"
      << "median relative error: " << 100.0 * f.median_error << " %\n"
      << "within 1 % of the truth: " << 100.0 * f.within_1_percent << " % of the seen pixels, "
      << 100.0 * f.kept_within_1_percent << " % of the estimated ones\n"
      << "background pixels (no surface): " << f.background << ", with an estimate: " << f.background_estimated
      << " (" << percent(f.background_estimated, f.background) << " %)\n";
  return out.str();
}

}  // namespace scene
