#pragma once

#include <vector>

#include "tools/depth/slanted_window.h"

namespace depth_tool {

// A plane of the scene in inverse depth over the whole image: w = a + b x + c y at array pixel
// (x, y). Every plane in space is one, so a floor or a wall is a single such plane in every view.
struct ImagePlane {
  double a = 0, b = 0, c = 0;
  double at(int x, int y) const { return a + b * x + c * y; }
};

struct DominantPlaneSettings {
  int count = 1;            // planes found at most, largest first
  int step = 4;             // pixels sampled: every step-th in both directions
  double max_cost = 0.3;    // of them, those whose plane's window cost is at most this
  double tolerance = 0.005; // an inlier's inverse depth lies this share off the plane at most
  int trials = 200;         // random samples whose planes are tried per plane
  double min_share = 0.03;  // a plane holds at least this share of the samples
};

// The planes that hold the most well-matched pixels of a map of per-pixel planes (W x H, row by
// row, with their window costs): the planes of random samples, extended over the image, are tried;
// the one with the most inliers is refitted to them by least squares, its inliers leave, and the
// next is sought among the rest. One sample proposes a plane (its slant is part of it), so a
// surface that holds a fifth of the samples is proposed about forty times in 200 trials. The same
// on every run.
std::vector<ImagePlane> dominant_planes(const std::vector<Plane>& planes, const std::vector<double>& cost, int W,
                                        int H, const DominantPlaneSettings& settings);

}  // namespace depth_tool
