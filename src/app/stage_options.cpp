#include "src/app/stage_options.h"

#include <sstream>
#include <string>

#include "src/app/command_line.h"
#include "src/app/run_error.h"
#include "src/core/settings.h"
#include "src/filter/sph_kernel.h"

namespace {

// The radii of --depth-avg alone first, so that --superpixels is named only when it matters.
void check_radii(const RunRadii& radii, float fx) {
  struct Radius {
    float h;
    const char* name;
    bool from_superpixels;
  };
  const Radius checked[] = {{radii.pixel, "one pixel", false},
                            {radii.pixel_filter, "5 pixels", false},
                            {radii.superpixel, "one superpixel radius", true},
                            {radii.superpixel_filter, "9 superpixel radii", true}};
  for (const Radius& r : checked) {
    if (kernel_computable(r.h)) continue;
    std::ostringstream s;
    s << "--depth-avg " << average_depth << " makes the smoothing radius " << r.h << " (" << r.name << " at fx "
      << fx << " of the first view), too " << (!(r.h < 1.0f) ? "large" : "small")
      << " for the filter's 32-bit kernel; give the scene's average depth in the length unit of the view files"
      << (r.from_superpixels ? " and check --superpixels" : "");
    throw RunError(s.str());
  }
}

}  // namespace

StageOptions make_stage_options(const Camera& first_view) {
  const float fx = first_view.K[0];
  // More superpixels than pixels leaves superpixels of less than a pixel, whatever the depth.
  if (static_cast<long long>(superpixel_count) > static_cast<long long>(first_view.width) * first_view.height)
    throw RunError("--superpixels " + std::to_string(superpixel_count) + " asks for more superpixels than the " +
                   std::to_string(first_view.width) + " x " + std::to_string(first_view.height) +
                   " pixels of the first view");
  const float s = superpixel_radius(first_view.width, first_view.height, superpixel_count);
  const RunRadii r = run_radii(average_depth, fx, s);
  check_radii(r, fx);
  const bool dot = use_normal_dot_weight;
  const bool visible = support_rule.visible();
  const float pixel_alpha = visible && !alpha_given ? kVisibleSupportAlpha : alpha;
  const StageOptions stages = {
      .radii = r,
      .fine_start = visible ? FineStart::measured_planes : FineStart::superpixel_scaffold,
      .drift_limit = visible ? kVisibleDriftLimit : 0.0f,
      .turn_limit = visible ? kVisibleTurnLimit : 0.0f,
      .superpixel_filter = {.alpha = alpha_sp, .beta = beta_sp, .radius = r.superpixel_filter,
                            .timestep = gradient_descent_timestep_sp, .schedule = kSuperpixelSchedule,
                            .use_normal_dot_weight = dot},
      .superpixel_support = {.radius = r.superpixel, .min_support = min_support_sp,
                             .per_view = kSuperpixelSupportPerView, .rule = support_rule, .use_normal_dot_weight = dot},
      .pixel_filter = {.alpha = pixel_alpha, .beta = beta, .radius = r.pixel_filter,
                       .timestep = gradient_descent_timestep, .schedule = kPixelSchedule, .use_normal_dot_weight = dot},
      .pixel_support = {.radius = r.pixel, .min_support = min_support, .per_view = kPixelSupportPerView,
                        .rule = support_rule, .use_normal_dot_weight = dot}};
  stages.superpixel_filter.Check();
  stages.superpixel_support.Check();
  stages.pixel_filter.Check();
  stages.pixel_support.Check();
  return stages;
}
