#include "src/spatial/particle_filtering_kernels.h"

#include <thrust/scan.h>
#include <thrust/sort.h>
#include <thrust/system/omp/execution_policy.h>

#include "device/copy.h"
#include "device/launch.h"
#include "device/memory.h"
#include "ketra/check_error.h"
#include "ketra/tools.h"

namespace {

constexpr unsigned int threads_per_block = 128;

// flag[i] = 1 where a cell starts: at 0 and wherever the key differs from its predecessor.
HOST_DEVICE void identify_cell_start(const device::Index& idx, const unsigned long long* keys, int* flag,
                                     unsigned int n) {
  const unsigned int i = idx.block.x * idx.blockDim.x + idx.thread.x;
  if (i >= n) return;
  flag[i] = i == 0 ? 1 : (keys[i - 1] != keys[i] ? 1 : 0);
}

// At each cell start i, writes the key and i into the cell's entry index[i].
HOST_DEVICE void create_key_value_array_kernel(const device::Index& idx, const unsigned long long* keys,
                                               const int* index, unsigned long long* cell_keys,
                                               unsigned int* cell_starts, unsigned int n) {
  const unsigned int i = idx.block.x * idx.blockDim.x + idx.thread.x;
  if (i >= n) return;
  if (i == 0 || keys[i - 1] != keys[i]) {
    cell_keys[index[i]] = keys[i];
    cell_starts[index[i]] = i;
  }
}

template <class T>
ketra::Array<T, 1> malloc_device_vector(unsigned int count) {
  ketra::Array<T, 4> a = ketra::mallocDeviceArray<T>(make_uint4(count, 1, 1, 1));
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  return ketra::internal::decreaseArrayDimension<T, 4, 1>(a);
}

}  // namespace

void create_cell_start_index_table(ketra::Array<unsigned long long, 1>& cell_keys,
                                   ketra::Array<unsigned int, 1>& cell_starts,
                                   const ketra::Array<unsigned long long, 1>& keys) {
  const unsigned int n = keys.extents.x;
  const unsigned long long* key_data = keys.data;
  void* memory = nullptr;
  device::allocate(&memory, n * sizeof(int));
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  int* flag = static_cast<int*>(memory);
  device::allocate(&memory, n * sizeof(int));
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  int* index = static_cast<int*>(memory);

  const device::Dim3 block(threads_per_block);
  // Exact block count: a count formed in float would lose the tail above 2^24 keys.
  const device::Dim3 grid(device::blocksFor(n, threads_per_block));
  device::launch(grid, block, [=](const device::Index& idx) { identify_cell_start(idx, key_data, flag, n); });
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  thrust::exclusive_scan(thrust::omp::par, flag, flag + n, index);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);

  int last_flag = 0, last_index = 0;
  device::copy(&last_flag, flag + (n - 1), sizeof(int), device::CopyDeviceToHost);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::copy(&last_index, index + (n - 1), sizeof(int), device::CopyDeviceToHost);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  const unsigned int cell_count = static_cast<unsigned int>(last_index + last_flag);

  cell_keys = malloc_device_vector<unsigned long long>(cell_count);
  cell_starts = malloc_device_vector<unsigned int>(cell_count);
  unsigned long long* out_keys = cell_keys.data;
  unsigned int* out_starts = cell_starts.data;
  device::launch(grid, block, [=](const device::Index& idx) {
    create_key_value_array_kernel(idx, key_data, index, out_keys, out_starts, n);
  });
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);

  device::release(index);
  device::release(flag);
}

// The sort library's merge binds a reference to a null pointer of an empty policy type, so this
// file is built without the sanitizer's null check (see CMakeLists.txt).
void sort_particle_handles(ketra::Array<unsigned int, 1> handles, ketra::Array<unsigned long long, 1> keys) {
  const unsigned int n = keys.extents.x;
  if (n == 0) return;
  thrust::sort_by_key(thrust::omp::par, keys.data, keys.data + n, handles.data);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}
