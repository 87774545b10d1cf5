#include "device/registry.h"

#include <cstdint>
#include <map>
#include <mutex>

namespace device::detail {

namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::uintptr_t, std::size_t> blocks;  // base address -> size in bytes
};

Registry& registry() {
  static Registry r;
  return r;
}

}  // namespace

void registerBlock(void* base, std::size_t bytes) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  r.blocks[reinterpret_cast<std::uintptr_t>(base)] = bytes;
}

bool unregisterBlock(void* base) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  return r.blocks.erase(reinterpret_cast<std::uintptr_t>(base)) == 1;
}

std::vector<void*> takeAllBlocks() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  std::vector<void*> all;
  for (auto const& [base, size] : r.blocks) all.push_back(reinterpret_cast<void*>(base));
  r.blocks.clear();
  return all;
}

bool isDeviceRange(const void* ptr, std::size_t bytes) {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  auto p = reinterpret_cast<std::uintptr_t>(ptr);
  auto it = r.blocks.upper_bound(p);
  if (it == r.blocks.begin()) return false;
  --it;
  std::uintptr_t offset = p - it->first;
  return offset < it->second && bytes <= it->second - offset;
}

std::size_t blockCount() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  return r.blocks.size();
}

std::size_t blockBytes() {
  Registry& r = registry();
  std::lock_guard lock(r.mutex);
  std::size_t sum = 0;
  for (auto const& [base, size] : r.blocks) sum += size;
  return sum;
}

}  // namespace device::detail
