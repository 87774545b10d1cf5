#include "src/spatial/hashing.h"

#include <thrust/functional.h>
#include <thrust/reduce.h>
#include <thrust/system/omp/execution_policy.h>

#include <cstdio>
#include <iostream>
#include <stdexcept>
#include <vector>

#include "device/atomics.h"
#include "device/copy.h"
#include "device/launch.h"
#include "device/memory.h"
#include "ketra/check_error.h"
#include "src/spatial/hash_offsets.h"

// Symbols of this layer's executor live in ordinary memory: they are filled by host copies, as
// the runtime's symbol copies would fill constant and global device memory.
unsigned int d_hash_offsets[64];
unsigned int d_hash_map_construction_error;

namespace {

constexpr unsigned long long key_mask = 0xffffffffffffULL;
constexpr unsigned int threads_per_block = 128;

// Inserts key `keys[i]`, moving on with every key it evicts. Slot entries are (age << 48) | key and
// 0 for free; the higher age wins a slot, and for equal ages the larger key.
HOST_DEVICE void hash_keys_kernel(const device::Index& idx, const unsigned long long* keys, unsigned int n,
                                  unsigned long long* table, unsigned int* ages, unsigned long long size) {
  const unsigned int i = idx.block.x * idx.blockDim.x + idx.thread.x;
  if (i >= n) return;
  unsigned long long key = keys[i];
  unsigned long long age = 1;
  while (true) {
    const unsigned long long entry = age << 48 | key;
    const unsigned long long slot = (d_hash_offsets[age - 1] + key) % size;
    // Store the maximum of the slot and entry; `old` ends as the value the slot held before.
    unsigned long long old = 0;
    while (true) {
      const unsigned long long stored = old > entry ? old : entry;
      const unsigned long long seen = device::atomicCAS(&table[slot], old, stored);
      if (seen == old) break;
      old = seen;
    }
    if (old >= entry) {
      // Lost against an older (or equally old and larger) key: try the next offset.
      ++age;
      if (age > hash_offset_count) {
        device::atomicAdd(&d_hash_map_construction_error, 1u);
        return;
      }
      continue;
    }
    device::atomicMax(&ages[key % size], static_cast<unsigned int>(age));
    const unsigned long long old_age = old >> 48;
    if (old_age == 0) return;
    // The evicted key goes on from the age after the one it had.
    key = old & key_mask;
    if (old_age >= hash_offset_count) {
      device::atomicAdd(&d_hash_map_construction_error, 1u);
      return;
    }
    age = old_age + 1;
  }
}

// Finds the slot that holds `keys[i]` and writes the key and its value there.
HOST_DEVICE void hashed_key_value_kernel(const device::Index& idx, const unsigned long long* keys,
                                         const unsigned int* values, unsigned int n, const unsigned long long* table,
                                         unsigned long long* out_keys, unsigned int* out_values,
                                         unsigned long long size) {
  const unsigned int i = idx.block.x * idx.blockDim.x + idx.thread.x;
  if (i >= n) return;
  const unsigned long long key = keys[i];
  for (int a = 0; a < hash_offset_count; ++a) {
    const unsigned long long slot = (d_hash_offsets[a] + key) % size;
    if ((table[slot] & key_mask) == key) {
      out_keys[slot] = key;
      out_values[slot] = values[i];
      return;
    }
  }
}

// A failed symbol copy is reported with the runtime's error text at the caller's position.
void check_symbol_copy(device::Error e, const char* file, int line) {
  if (e == device::Success) return;
  char text[1024];
  std::snprintf(text, sizeof(text), "%s:%d: cuda error: %s\n", file, line, device::getErrorString(e));
  throw std::runtime_error(text);
}

template <class T>
T* device_alloc(std::size_t count) {
  void* p = nullptr;
  device::allocate(&p, count * sizeof(T));
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  return static_cast<T*>(p);
}

}  // namespace

HashMap create_hash_map(const ketra::Array<unsigned long long, 1>& keys, const ketra::Array<unsigned int, 1>& values,
                        float load_factor) {
  const unsigned int n = keys.extents.x;
  HashMap map;
  const unsigned int size = static_cast<unsigned int>(static_cast<float>(n) / load_factor);
  std::cout << "hash map size is " << size << "\n";

  unsigned long long* table = device_alloc<unsigned long long>(size);
  unsigned int* ages = device_alloc<unsigned int>(size);
  // One thread per key; an empty key list launches nothing and gives an empty map.
  const device::Dim3 grid(device::blocksFor(n, threads_per_block));
  const device::Dim3 block(threads_per_block);

  HashOffsetSource offset_source;
  for (unsigned int attempt = 1;; ++attempt) {
    std::cout << "trying to build hash map: attempt " << attempt << "\n";
    device::memset(table, 0, size * sizeof(unsigned long long));
    _CHECK_CUDA_ERROR(__FILE__, __LINE__);
    device::memset(ages, 0, size * sizeof(unsigned int));
    _CHECK_CUDA_ERROR(__FILE__, __LINE__);
    draw_hash_offsets(offset_source, map.hash_offsets);
    check_symbol_copy(device::copy(d_hash_offsets, map.hash_offsets.data(), sizeof(d_hash_offsets),
                                   device::CopyHostToHost),
                      __FILE__, __LINE__);
    const unsigned int no_error = 0;
    check_symbol_copy(device::copy(&d_hash_map_construction_error, &no_error, sizeof(no_error), device::CopyHostToHost),
                      __FILE__, __LINE__);
    if (n > 0) {
      const unsigned long long* key_data = keys.data;
      device::launch(grid, block, [=](const device::Index& idx) {
        hash_keys_kernel(idx, key_data, n, table, ages, size);
      });
      _CHECK_CUDA_ERROR(__FILE__, __LINE__);
    }
    unsigned int failures = 0;
    check_symbol_copy(device::copy(&failures, &d_hash_map_construction_error, sizeof(failures), device::CopyHostToHost),
                      __FILE__, __LINE__);
    if (failures == 0) break;
  }

  // The reduction binds a reference to a null pointer of an empty policy type, so this file is
  // built without the sanitizer's null check (see CMakeLists.txt).
  map.max_age = thrust::reduce(thrust::omp::par, ages, ages + size, 0u, thrust::maximum<unsigned int>());
  map.size = size;
  std::cout << " max age is " << map.max_age << "\n";

  unsigned long long* out_keys = device_alloc<unsigned long long>(size);
  unsigned int* out_values = device_alloc<unsigned int>(size);
  device::memset(out_keys, 0xFF, size * sizeof(unsigned long long));  // all bits set: free
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::memset(out_values, 0xFF, size * sizeof(unsigned int));  // 0xFFFFFFFF: free
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  if (n > 0) {
    const unsigned long long* key_data = keys.data;
    const unsigned int* value_data = values.data;
    device::launch(grid, block, [=](const device::Index& idx) {
      hashed_key_value_kernel(idx, key_data, value_data, n, table, out_keys, out_values, size);
    });
    _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  }

  map.keys.resize(size);
  map.values.resize(size);
  map.ages.resize(size);
  device::copy(map.keys.data(), out_keys, size * sizeof(unsigned long long), device::CopyDeviceToHost);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::copy(map.values.data(), out_values, size * sizeof(unsigned int), device::CopyDeviceToHost);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::copy(map.ages.data(), ages, size * sizeof(unsigned int), device::CopyDeviceToHost);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);

  device::release(out_values);
  device::release(out_keys);
  device::release(ages);
  device::release(table);
  return map;
}
