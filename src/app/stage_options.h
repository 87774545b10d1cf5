#pragma once

#include "src/core/camera.h"
#include "src/core/radii.h"
#include "src/filter/filter_particles.h"
#include "src/visibility/support_filter.h"

// What every stage of a run is given, made once from the run-level settings, the support rule of
// the command line and the first view.
struct StageOptions {
  RunRadii radii;
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
