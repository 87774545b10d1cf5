#pragma once

#include "ketra/array.h"

// Device forms of the cell index: the same tables as the host forms of cell_index.h, built by
// kernels on device arrays.

// Distinct keys of the sorted device array `keys` and the position of each key's first occurrence.
// cell_keys and cell_starts are allocated on the device with one element per cell; the caller owns
// and frees them (whatever the descriptors held before is not freed). `keys` must not be empty: an
// empty array makes the first launch fail, which throws.
void create_cell_start_index_table(ketra::Array<unsigned long long, 1>& cell_keys,
                                   ketra::Array<unsigned int, 1>& cell_starts,
                                   const ketra::Array<unsigned long long, 1>& keys);

// Ascending sort of the device array `keys` with `handles` as payload, in place. Particles of equal
// key keep their relative order, as in the host form. An empty array returns at once.
void sort_particle_handles(ketra::Array<unsigned int, 1> handles, ketra::Array<unsigned long long, 1> keys);
