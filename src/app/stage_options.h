#pragma once

#include "src/core/camera.h"
#include "src/core/radii.h"
#include "src/filter/filter_particles.h"
#include "src/visibility/support_filter.h"

// Where the fine particles start: on the scaffold of the filtered superpixel-level model, or, with
// the visible share, on planes fitted to each pixel's own measured neighbourhood (no superpixel
// model is made).
enum class FineStart { superpixel_scaffold, measured_planes };

// The fine filter's data term with the visible share, unless --alpha sets it: the particles' own
// measurements are then fitted planes, which hold less noise than the depths.
inline constexpr float kVisibleSupportAlpha = 0.01f;

// With the visible share, how far (in footprints) the fine filter may carry a particle along its
// ray from its measured plane before the particle goes back to it.
inline constexpr float kVisibleDriftLimit = 0.5f;
// And how far (in degrees) it may turn a particle's normal from its measured plane's: on well-seen
// surfaces the filter's normals differ from the planes' by a degree or two, on surfaces two views
// see it turns a quarter of them by more than this.
inline constexpr float kVisibleTurnLimit = 10.0f;

// What every stage of a run is given, made once from the run-level settings, the support rule of
// the command line and the first view.
struct StageOptions {
  RunRadii radii;
  FineStart fine_start = FineStart::superpixel_scaffold;
  float drift_limit = 0.0f;  // footprints; 0: the fine filter's moves and turns stand as they are
  float turn_limit = 0.0f;   // degrees, with a drift limit
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
