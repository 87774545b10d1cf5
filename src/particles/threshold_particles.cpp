#include "src/particles/threshold_particles.h"

#include <cstddef>
#include <utility>

namespace {

// Writes element index_k to place k for every survivor k, then cuts the array. Each source
// either equals k or lies behind the new end, so the writes never read a moved element.
template <typename E>
void compact(std::vector<E>& array, const std::vector<std::pair<int, int>>& keep_index, std::size_t survivors) {
  for (std::size_t k = 0; k < survivors; ++k) array[k] = array[keep_index[k].second];
  array.resize(survivors);
}

}  // namespace

template <typename T>
void threshold_particles(std::vector<T>& values, std::vector<Particle>& particles, std::vector<float>& offsets,
                         std::vector<float3>& normals, T low, T high) {
  const long n = static_cast<long>(particles.size());
  std::vector<std::pair<int, int>> keep_index(n);
#pragma omp parallel for schedule(static)
  for (long i = 0; i < n; ++i) keep_index[i] = {(low <= values[i] && values[i] <= high) ? 1 : 0, static_cast<int>(i)};

  // Two-pointer partition: survivors to the front, not stably.
  long front = 0;
  long back = n - 1;
  while (true) {
    while (front < n && keep_index[front].first == 1) ++front;
    while (back >= 0 && keep_index[back].first == 0) --back;
    if (front >= back) break;
    std::swap(keep_index[front], keep_index[back]);
  }
  const std::size_t survivors = static_cast<std::size_t>(front);

  compact(particles, keep_index, survivors);
  compact(offsets, keep_index, survivors);
  compact(normals, keep_index, survivors);
}

template void threshold_particles<int>(std::vector<int>&, std::vector<Particle>&, std::vector<float>&,
                                       std::vector<float3>&, int, int);
template void threshold_particles<float>(std::vector<float>&, std::vector<Particle>&, std::vector<float>&,
                                         std::vector<float3>&, float, float);
