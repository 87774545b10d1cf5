#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "tools/depth/slanted_window.h"

namespace depth_tool {

// Inverse depth a + b dx + c dy + d dx^2 + e dx dy + f dy^2 around a pixel (dx, dy in pixels).
struct Quadric {
  double a = 0, b = 0, c = 0, d = 0, e = 0, f = 0;
};

// Inverse depth as a quadric around pixel (x, y), fitted to the valid depths within `radius`; a
// second fit leaves out those far off the first (beyond three times their median distance from it,
// and at least `tolerance`). False when fewer than twice as many depths as terms remain or they do
// not fix every term (a single row, say).
bool fit_quadric(const CMatrix<float>& depth, int x, int y, int radius, double tolerance, Quadric& q);

// 1 - the normalised cross-correlation of the window laid on the curved surface q with the
// neighbour's image; false when the neighbour does not see all of it. With d = e = f = 0 it is
// the slanted window's cost.
bool curved_window_cost(const WindowPair& pair, const ReferenceWindow& window, const Quadric& q, double& cost);

struct CurvedRefinementSettings {
  int radius = 3;           // matching window of (2 radius + 1)^2 pixels
  int fit_radius = 5;       // depths the surface's quadric is fitted to
  float range = 1.5f;       // depths tried: the quadric moved by up to this many label steps either way
  int steps = 13;           // depths tried, evenly over the range
  double min_facing = 0.5;  // a neighbour counts where it sees the surface within acos(this) of its normal
  float label_step = 0.0f;  // one label step in inverse depth (of the sweep that made the depths)
};

// Moves every depth (0 = none) along its ray to where its window, laid on the quadric that the
// surrounding depths describe, agrees best with the images of the neighbours that see the surface
// there within acos(min_facing) of its normal. On a convex surface a window matches best a little
// behind it: a planar window because the surface bulges in front of the plane through its depths,
// and any window the more, the more obliquely a neighbour sees the surface; one that sees it
// nearly edge-on pulls the match far behind. Depths whose best lies at an end of the range, or
// that no such neighbour sees, stay as they are. Returns the number of depths moved.
long refine_on_curved_windows(CMatrix<float>& depth, const Camera& reference,
                              const std::vector<const Camera*>& neighbours, const CurvedRefinementSettings& settings);

}  // namespace depth_tool
