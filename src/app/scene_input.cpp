#include "src/app/scene_input.h"

#include <algorithm>
#include <cmath>
#include <iostream>

#include "src/core/settings.h"

namespace {

// The command line has no switches for the depth limits: the minimum counts as given in every
// run (so its statistic never replaces the -1 that the lower depth limit relies on), the
// maximum as never given.
constexpr bool kMinimumDepthGiven = true;
constexpr bool kMaximumDepthGiven = false;

float smallest_pixel(const CMatrix<float>& m) {
  if (m.size() == 0) return 0.0f;
  float v = m.data[0];
  for (std::size_t i = 1; i < m.size(); ++i)
    if (m.data[i] < v) v = m.data[i];
  return v;
}

float largest_pixel(const CMatrix<float>& m) {
  if (m.size() == 0) return 0.0f;
  float v = m.data[0];
  for (std::size_t i = 1; i < m.size(); ++i)
    if (m.data[i] > v) v = m.data[i];
  return v;
}

// Element at position size / 2 of the sorted order; the vector is partly reordered.
float middle_element(std::vector<float>& values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

float median_of(const std::vector<CMatrix<float>>& depthmaps, float (*per_view)(const CMatrix<float>&)) {
  std::vector<float> values;
  values.reserve(depthmaps.size());
  for (const CMatrix<float>& m : depthmaps) values.push_back(per_view(m));
  return middle_element(values);
}

}  // namespace

void read_views(const std::vector<std::string>& files, std::vector<Camera>& cameras,
                std::vector<Camera*>& camera_ptrs, std::vector<CMatrix<float>>& depthmaps,
                std::vector<std::string>* depth_paths) {
  if (depth_paths != nullptr) depth_paths->assign(files.size(), std::string());
  cameras.assign(files.size(), Camera());
  camera_ptrs.assign(files.size(), nullptr);
  depthmaps.assign(files.size(), CMatrix<float>());
  for (std::size_t i = 0; i < files.size(); ++i) {
    std::cout << "Reading file " << files[i] << std::endl;
    camera_ptrs[i] = &cameras[i];
    read_view(files[i], static_cast<int>(i), cameras[i], depthmaps[i],
              depth_paths != nullptr ? &(*depth_paths)[i] : nullptr);
  }
  if (files.empty()) return;

  if (!kMinimumDepthGiven) {
    depth_range_min = median_of(depthmaps, smallest_pixel);
    std::cout << "minimum depth = " << static_cast<double>(depth_range_min) << std::endl;
  }
  if (!kMaximumDepthGiven) {
    depth_range_max = median_of(depthmaps, largest_pixel);
    std::cout << "maximum depth = " << static_cast<double>(depth_range_max) << std::endl;
  }
}
