#pragma once

#include "ketra/array.h"
#include "src/spatial/hash_map.h"

// Device form of the cell hash map: the same construction as the host form (same offsets, same
// competition by age, same result), run as kernels over device arrays of keys and values, one thread
// per key. Prints the table size, each attempt and the largest age to standard output.
HashMap create_hash_map(const ketra::Array<unsigned long long, 1>& keys, const ketra::Array<unsigned int, 1>& values,
                        float load_factor);

// Module-scope device symbols read by the kernels: the probe offsets of the current attempt
// (constant memory, 256 bytes) and the count of keys that found no slot in it.
extern unsigned int d_hash_offsets[64];
extern unsigned int d_hash_map_construction_error;
