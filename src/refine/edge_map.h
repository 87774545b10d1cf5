#pragma once

#include "device/vector_types.h"
#include "ketra/array.h"

// Colour change per pixel: the RGB distance (channels as bytes / 255) to the right neighbour plus
// that to the neighbour below, with no term across the last column or row. edges and image are
// device arrays of one size; throws std::runtime_error when they differ.
void compute_edge_map(ketra::Array<float, 2>& edges, ketra::Array<uchar4, 2> const& image);

// Turns an edge map in place into the per-pixel penalty of semi-global matching:
// max(P2_min, P2_max * exp(-decay * map^exponent)), so that strong edges lower the penalty from
// P2_max towards P2_min. Leaves any launch error pending.
void compute_P2_costs(ketra::Array<float, 2>& map, float P2_min, float decay, float exponent, float P2_max);
