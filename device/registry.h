#pragma once

#include <cstddef>
#include <vector>

// Internal bookkeeping of the device layer: the live allocations (base address and size).
namespace device::detail {

void registerBlock(void* base, std::size_t bytes);
bool unregisterBlock(void* base);  // false when base is not the start of a live block
std::vector<void*> takeAllBlocks();
bool isDeviceRange(const void* ptr, std::size_t bytes);
std::size_t blockCount();
std::size_t blockBytes();

// Texture arrays live in their own registry (texture.cpp); reset releases them too.
void releaseAllTextureArrays();

}  // namespace device::detail
