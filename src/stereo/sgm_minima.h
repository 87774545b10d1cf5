#pragma once

#include "ketra/array.h"

// How distinct the label that semi-global matching picks is: per pixel of the path-cost sums S
// (extents (L, W, H), labels adjacent), minima(x, y, 0) is the smallest sum over all labels (the
// first smallest by a plain scan) and minima(x, y, 1) the smallest among the other local minima
// of the curve that lie at least two labels away from it: a second valley, not the shoulder of
// the first. FLT_MAX where there is no such minimum. minima is a device array (W, H, 2).
void sgm_path_minima(ketra::Array<float, 3>& minima, ketra::Array<float, 3> const& S);
