#include <thrust/sort.h>
#include <thrust/system/omp/execution_policy.h>

#include "src/spatial/cell_index.h"

// Kept apart from the rest of the cell index: the sort library binds a reference to a null pointer
// of an empty policy type inside its merge, which the sanitized build must not stop on (see
// CMakeLists.txt).
void sort_particle_handles(std::vector<unsigned int>& handles, std::vector<unsigned long long>& keys) {
  if (keys.empty()) return;
  thrust::stable_sort_by_key(thrust::omp::par, keys.data(), keys.data() + keys.size(), handles.data());
}
