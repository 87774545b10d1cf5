#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// Where the fine particles of a view start when few views see each surface: on a plane fitted to
// each pixel's own measured neighbourhood, instead of on the superpixel scaffold.
//
// The plane is fitted to the measured points within `window` pixels of the pixel, those only
// whose depth lies within `footprints` pixel footprints (at the pixel's own depth) per pixel of
// distance of the pixel's own, so that a rod's pixels do not fit the background behind it nor the
// background the rod, while a surface seen obliquely, whose depth changes by several footprints
// from pixel to pixel, still gets its neighbours. It is fitted in inverse
// depth, 1 / z = a u + b v + c over the pixel's ray coordinates u, v (a plane in space is linear
// there), by least squares three times, with weights that fall with the distance from the
// previous fit, so that a few wrong depths lose their pull. A slight preference for planes facing
// the camera keeps the fit defined where the points lie on a line (a rod one pixel wide).
//
// depth gets the plane's depth at each pixel with a usable measured depth, 0 elsewhere; normal_map
// the plane's world normal, turned towards the camera. Where fewer than 4 points are fitted, or
// the plane's depth lies more than `footprints` footprints from the measurement, the measured depth
// and the direction towards the camera stand. Both images get the size of `measured`.
//
// Far and noisy surfaces need more points than the window holds: where the fit leaves the pixel's
// depth uncertain by more than kWideningUncertainty footprints (the robust spread of the depths about
// the plane over the root of their number), the plane is fitted again over `wide_window` pixels,
// with weights that fall to 0 at 4.685 spreads from the first plane, and taken if its depth at the
// pixel lies within 3 such uncertainties of the first plane's and the wide window shows no
// curvature (a fit with a term in the squared distance from the pixel moves its centre by less than
// 2 standard deviations of that move). Where the wide window curves, the depth at the pixel is
// that of the curved fit, with the small plane's slopes; a surface that ends within the wide window
// keeps the small plane. A wide_window not above `window` fits the small window only.
void measured_planes(CMatrix<float>& depth, CMatrix<float3>& normal_map, const CMatrix<float>& measured,
                     const Camera& camera, float footprints, int window, int wide_window, float min_depth,
                     float max_depth);

// 7 x 7 pixels: the fit averages the depth noise of about 40 measurements and still follows a rod
// one pixel wide. 5 footprints per pixel: surfaces seen at up to about 80 degrees to the ray.
inline constexpr int kMeasuredPlaneWindow = 3;
// 15 x 15 pixels, about 4.5 times the points, where the small window is uncertain: far surfaces
// that two views see obliquely need that many at depth noise growing with the squared depth.
inline constexpr int kMeasuredPlaneWideWindow = 7;
inline constexpr double kWideningUncertainty = 0.1;
inline constexpr float kMeasuredPlaneFootprints = 5.0f;

// Appends the fine particles of every view of `cameras` (its depth map in `depthmaps`, by the
// camera's place) on their measured planes, with the default windows: the plane stands for the
// measurement too, so that the data term pulls towards it rather than towards the noise, and its
// normal is the particle's init_normal, where it starts and what it may return to.
void particles_on_measured_planes(std::vector<Particle>& particles, std::vector<float>& offsets,
                                  std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                                  const std::vector<CMatrix<float>>& depthmaps, float min_depth, float max_depth);
