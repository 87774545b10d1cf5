#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "tools/depth/view_geometry.h"

namespace depth_tool {

// An image's grey values (mean of R, G and B), sampled bilinearly.
struct Grey {
  int W = 0, H = 0;
  std::vector<float> v;
  float at(int x, int y) const { return v[static_cast<std::size_t>(y) * W + x]; }
  // Bilinear, (x, y) inside [0, W - 1] x [0, H - 1].
  float sample(float x, float y) const {
    const int x0 = std::min(static_cast<int>(x), W - 2), y0 = std::min(static_cast<int>(y), H - 2);
    const float fx = x - static_cast<float>(x0), fy = y - static_cast<float>(y0);
    const float* p = &v[static_cast<std::size_t>(y0) * W + x0];
    return (1 - fy) * ((1 - fx) * p[0] + fx * p[1]) + fy * ((1 - fx) * p[W] + fx * p[W + 1]);
  }
};

Grey grey_of(const CMatrix<uchar4>& image);

// A neighbour as seen from the reference camera: Q = M r / w + m for the reference ray r of a
// pixel at inverse depth w, so that Q * w = M r + m w is affine in the pixel and in w.
struct WindowPair {
  double M[9], m[3];
  double fx, fy, cx, cy;
  int W, H;
  Grey grey;
};

WindowPair window_pair(const ViewGeometry& reference, const Camera& neighbour);

// Every neighbour as seen from the reference, in the given order.
std::vector<WindowPair> window_pairs(const ViewGeometry& reference, const std::vector<const Camera*>& neighbours);

// Inverse depth a + b dx + c dy around a pixel (dx, dy in pixels).
struct Plane {
  double a = 0, b = 0, c = 0;
  bool valid = false;
};

// The reference's window of (2 radius + 1)^2 grey values around a pixel, less their mean.
struct ReferenceWindow {
  int x = 0, y = 0, radius = 0;
  double rx0 = 0, ry0 = 0, fx = 1, fy = 1;  // the pixel's camera-plane ray and the focal lengths
  std::vector<float> centred;
  double norm = 0;  // sum of the squares of centred
};

// False when the window leaves the image or is flat (nothing to correlate). With a stride, the
// window holds every stride-th pixel within `radius`: the window of a camera whose pixels are
// `stride` times larger, so that window_cost scores it as it is, given the plane's slopes per
// sample (stride times those per pixel).
bool reference_window(const Grey& reference, const ViewGeometry& geometry, int x, int y, int radius,
                      ReferenceWindow& window, int stride = 1);

// 1 - the normalised cross-correlation of the window laid on the inverse-depth plane
// w = a + b dx + c dy with the neighbour's image; false when the neighbour does not see all of it.
bool window_cost(const WindowPair& pair, const ReferenceWindow& window, double a, double b, double c, double& cost);

// The mean window cost over the neighbours that see the whole window; false when none does.
bool mean_cost(const std::vector<WindowPair>& pairs, const ReferenceWindow& window, double a, double b, double c,
               double& cost);

// Inverse depth as a + b dx + c dy around a pixel, fitted to the valid depths of its window; a
// second fit leaves out those that lie far off the first (other surfaces, wrong depths): beyond
// three times their median distance from it, and at least `tolerance`. False without a plane.
bool fit_plane(const CMatrix<float>& depth, int x, int y, int radius, double tolerance, double& a, double& b,
               double& c);

}  // namespace depth_tool
