#pragma once

#include <numbers>
#include <vector>

#include "device/vector_types.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// How the support filters decide. With share 0 (the default) a point stays when its support
// reaches the fixed level of its model (--min-support-sp, --min-support). With a share above 0
// (--visible-support) each other view judges by its own surface (see view_agreement.h): a point
// stays when what the views that agree with it give reaches that share of what the views that see
// it could give, and at least `floor` (--visible-floor), so that a point no other view can see
// needs a floor of 0 to stay.
struct SupportRule {
  float share = 0.0f;
  float floor = 0.5f;
  // Views seeing the surface more obliquely take no part; one agreeing view at this angle still
  // gives pi * cos(80 degrees), about 0.55, above the default floor.
  float facing_limit_degrees = 80.0f;
  bool visible() const { return share > 0.0f; }
};

// What one view seeing a point head-on gives on each level: a particle's footprint is one pixel
// on the pixel level, so about pi of one view's particles lie within it; on the superpixel level
// it is the disc of its superpixel's area, which holds about one superpixel particle of a view.
inline constexpr float kPixelSupportPerView = std::numbers::pi_v<float>;
inline constexpr float kSuperpixelSupportPerView = 1.0f;

// The settings of one support filter.
struct SupportFilterOptions {
  float radius = 0.0f;       // cell size of the support pass: one particle footprint at the average depth
  float min_support = 3.0f;  // the fixed level a point's support must reach
  float per_view = kPixelSupportPerView;  // what a view facing a point gives, for the visible share
  SupportRule rule;                       // the fixed level or the visible share
  bool use_normal_dot_weight = true;      // a neighbour gives less the more its normal turns away

  // Throws std::runtime_error naming the first setting a filter cannot work with: a radius that
  // is not positive and finite, a level or per_view that is negative or not finite, a share
  // outside [0, 1], a negative floor or a facing limit outside [0, 90] degrees.
  void Check() const;
};

// The margin by which each point passes the visible share: support[i] (what the agreeing views
// give) minus the larger of share * expected[i] (what the seeing views could give) and the floor.
// A point stays when it is 0 or more.
std::vector<float> visible_support_margin(const std::vector<float>& support, const std::vector<float>& expected,
                                          const SupportRule& rule);

// Removes the particles whose support from other views falls short: below the fixed level (the
// support pass reorders the three arrays), or, with the visible share on, short of the rule by the
// verdicts of the views in `cameras` at `per_view` per head-on view (and then prints how many
// stayed).
void support_filter(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                    const std::vector<Camera*>& cameras, const SupportFilterOptions& options);
