#include "src/improve/view_neighbours.h"

#include <algorithm>
#include <utility>

std::vector<int> views_facing_alike(std::vector<Camera*> const& cameras, std::size_t view) {
  std::vector<std::pair<float, int>> near;
  Camera const& a = *cameras[view];
  for (std::size_t j = 0; j < cameras.size(); ++j) {
    if (j == view) continue;
    Camera const& b = *cameras[j];
    // The third rows of the world-to-camera rotations are the optical axes (R is kept by columns).
    const float cosine = a.R[2] * b.R[2] + a.R[5] * b.R[5] + a.R[8] * b.R[8];
    if (cosine >= 0.5f) near.push_back({-cosine, static_cast<int>(j)});
  }
  std::sort(near.begin(), near.end());
  std::vector<int> views;
  for (auto const& n : near) views.push_back(n.second);
  return views;
}

std::string overlap_problem(std::vector<Camera*> const& cameras) {
  for (std::size_t i = 0; i < cameras.size(); ++i)
    if (views_facing_alike(cameras, i).size() >= 3) return {};
  return "--improve-cameras: no view has three other views whose optical axes lie within 60 degrees of its own; "
         "camera alignment needs views that overlap";
}
