#include "src/app/input_checks.h"

#include <algorithm>
#include <sstream>

namespace {

std::string text_of(double v) {
  std::ostringstream s;
  s << v;
  return s.str();
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
