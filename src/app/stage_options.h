#pragma once

#include "src/core/camera.h"
#include "src/filter/filter_particles.h"
#include "src/visibility/support_filter.h"

// The radii of a run in world units: k pixels at the average depth, with fx of the first view.
struct RunRadii {
  float superpixel_filter = 0.0f;  // 9 superpixel radii: smoothing radius of the superpixel-level filter
  float superpixel = 0.0f;         // one superpixel radius: cell size of its support filter
  float pixel_filter = 0.0f;       // 5 pixels: smoothing radius of the fine filter
  float pixel = 0.0f;              // one pixel: fine support filters, back-face tolerance
  float refine = 0.0f;             // 4 pixels: depth-map refinement
};

// The radii for a superpixel radius of `superpixel_radius` pixels.
RunRadii run_radii(float average_depth, float fx, float superpixel_radius);

// Where the fine particles start: on the scaffold of the filtered superpixel-level model, or, with
// the visible share, on planes fitted to each pixel's own measured neighbourhood (no superpixel
// model is made).
enum class FineStart { superpixel_scaffold, measured_planes };

// The fine filter's data term with the visible share, unless --alpha sets it: the particles' own
// measurements are then fitted planes, which hold less noise than the depths.
inline constexpr float kVisibleSupportAlpha = 0.01f;

// What every stage of a run is given, made once from the run-level settings, the support rule of
// the command line and the first view.
struct StageOptions {
  RunRadii radii;
  FineStart fine_start = FineStart::superpixel_scaffold;
  FilterOptions superpixel_filter;
  SupportFilterOptions superpixel_support;
  FilterOptions pixel_filter;
  SupportFilterOptions pixel_support;
};

// Throws RunError when the average depth makes a radius that the filter's 32-bit kernel cannot
// compute (its weights would be 0, infinite or NaN, and the filter could not end); the reason names
// --depth-avg, and --superpixels where that radius comes from it. The options are checked (Check)
// before they are returned.
StageOptions make_stage_options(const Camera& first_view);
