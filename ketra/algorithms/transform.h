#pragma once

#include "device/stream.h"
#include "ketra/array.h"

// Reshaping algorithms on device arrays: shrinking by a tent filter, and flips.
namespace ketra {

// Shrinks a to new_extents (x, y, z; w is kept) dimension by dimension in the order x, y, z.
// Each step allocates a new pitched array and frees the one it read from, so the memory that a
// held on entry is gone afterwards; a then describes the result.
template <class T>
void downsample(Array<T, 4>& a, uint3 new_extents, device::stream_t stream = nullptr);

// Reverse the order of the elements along one axis, in place.
template <class T> void flipX(Array<T, 4>& a);
template <class T> void flipY(Array<T, 4>& a);
template <class T> void flipZ(Array<T, 4>& a);

}  // namespace ketra
