#include "src/app/input_checks.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include "src/app/scene_input.h"
#include "src/filter/sph_kernel.h"

namespace {

std::string text_of(double v) {
  std::ostringstream s;
  s << v;
  return s.str();
}

bool kernel_computable(float h) {
  const float w = W(0.0f, h);
  return std::isnormal(w) && std::isfinite(1.0f / w);
}

}  // namespace

InputDepths measure_input_depths(const std::vector<CMatrix<float>>& depthmaps) {
  std::vector<float> depths;
  for (const CMatrix<float>& m : depthmaps)
    for (std::size_t i = 0; i < m.size(); ++i)
      if (m.data[i] > 0.0f) depths.push_back(m.data[i]);
  InputDepths d;
  d.pixels = depths.size();
  if (depths.empty()) return d;
  const auto [lo, hi] = std::minmax_element(depths.begin(), depths.end());
  d.min = *lo;
  d.max = *hi;
  std::nth_element(depths.begin(), depths.begin() + depths.size() / 2, depths.end());
  d.median = depths[depths.size() / 2];
  return d;
}

std::string depth_avg_warning(float average_depth, const InputDepths& depths) {
  if (depths.pixels == 0) return "warning: the depth maps hold no depth (every pixel is 0), so the model will be empty";
  if (average_depth >= 0.5f * depths.min && average_depth <= 2.0f * depths.max) return {};
  return "warning: --depth-avg " + text_of(average_depth) + " lies far outside the depths of the input (" +
         text_of(depths.min) + " to " + text_of(depths.max) + ", median " + text_of(depths.median) +
         "); every smoothing radius scales with it";
}

std::string radius_problem(float average_depth, float fx, float superpixel_radius) {
  struct Radius {
    float pixels;
    const char* name;
    bool from_superpixels;
  };
  // The radii of --depth-avg alone first, so that --superpixels is named only when it matters.
  const Radius radii[] = {{1.0f, "one pixel", false},
                          {5.0f, "5 pixels", false},
                          {superpixel_radius, "one superpixel radius", true},
                          {superpixel_radius * 9.0f, "9 superpixel radii", true}};
  for (const Radius& r : radii) {
    const float h = pixel_radius(r.pixels, average_depth, fx);
    if (kernel_computable(h)) continue;
    const bool large = !(h < 1.0f);
    return "--depth-avg " + text_of(average_depth) + " makes the smoothing radius " + text_of(h) + " (" + r.name +
           " at fx " + text_of(fx) + " of the first view), too " + (large ? "large" : "small") +
           " for the filter's 32-bit kernel; give the scene's average depth in the length unit of the view files" +
           (r.from_superpixels ? " and check --superpixels" : "");
  }
  return {};
}
