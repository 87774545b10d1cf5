#pragma once

#include "ketra/array.h"

// Semi-global matching: turns the cost volume costs (W, H, L), label axis last, into one label
// per pixel of labels (W x H, allocated by the caller): the label of the smallest sum of path
// costs, refined to a fraction by a parabola through its neighbours where that succeeds (values
// in [0, L)). Cells that are infinite or not-a-number count as 1000, the cost of no data.
//
// Along each path the cost of a label change of one is P1, of a larger one P2, or the pixel's
// value in P2_map when its data pointer is not null (a device array of W x H, as made by
// compute_P2_costs; bound to the program-wide texture P2_tex, so one sgm at a time). num_paths
// selects the directions: below 8 the four axes, from 8 also the diagonals, from 16 the knight
// moves, from 32 the sixteen fine directions. single_stream runs every path in order into one sum;
// otherwise the paths alternate between two streams with a sum each, added at the end. costs is
// not changed. With debug_depthmap set, the path sums and their integer best labels are dumped to
// output_directory + "/debug/debug_path_costs.dat" and "/debug/debug_depthmap.dat".
//
// Throws std::runtime_error when labels or P2_map differ in size from the volume's images.
void sgm(ketra::Array<float, 2>& labels, ketra::Array<float, 3>& costs, float P1, float P2,
         ketra::Array<float, 2> const& P2_map, int num_paths, bool single_stream);

// sgm as above, and how distinct each pixel's best label is: the path-cost sums' smallest value
// and their second valley, as sgm_path_minima writes them into minima (W x H x 2, device).
void sgm(ketra::Array<float, 2>& labels, ketra::Array<float, 3>& costs, float P1, float P2,
         ketra::Array<float, 2> const& P2_map, int num_paths, bool single_stream, ketra::Array<float, 3>& minima);
