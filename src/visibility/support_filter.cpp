#include "src/visibility/support_filter.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <iostream>

#include "src/core/check_setting.h"
#include "src/filter/density.h"
#include "src/particles/threshold_particles.h"
#include "src/visibility/view_agreement.h"

void SupportFilterOptions::Check() const {
  const auto require = [](bool ok, const char* setting, const char* rule, float value) {
    check_setting(ok, "SupportFilterOptions", setting, rule, value);
  };
  require(std::isfinite(radius) && radius > 0.0f, "radius", "positive and finite", radius);
  require(std::isfinite(min_support) && min_support >= 0.0f, "min_support", "finite and not negative", min_support);
  require(std::isfinite(per_view) && per_view >= 0.0f, "per_view", "finite and not negative", per_view);
  require(rule.share >= 0.0f && rule.share <= 1.0f, "the share", "between 0 and 1", rule.share);
  require(std::isfinite(rule.floor) && rule.floor >= 0.0f, "the floor", "finite and not negative", rule.floor);
  require(rule.facing_limit_degrees >= 0.0f && rule.facing_limit_degrees <= 90.0f, "the facing limit",
          "between 0 and 90 degrees", rule.facing_limit_degrees);
}

std::vector<float> visible_support_margin(const std::vector<float>& support, const std::vector<float>& expected,
                                          const SupportRule& rule) {
  std::vector<float> margin(support.size());
  for (std::size_t i = 0; i < support.size(); ++i)
    margin[i] = support[i] - std::max(rule.share * expected[i], rule.floor);
  return margin;
}

void support_filter(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                    const std::vector<Camera*>& cameras, const SupportFilterOptions& options) {
  const SupportRule& rule = options.rule;
  if (!rule.visible()) {
    std::vector<float> support;
    compute_particle_support(support, particles, offsets, normals, options.radius, options.min_support,
                             options.use_normal_dot_weight);
    threshold_particles<float>(support, particles, offsets, normals, options.min_support, FLT_MAX);
    return;
  }
  // Each other view judges by its own surface whether it sees the point and agrees with it: the
  // support is what the agreeing views give, the expectation what all views that see it could.
  const float cos_limit = std::cos(rule.facing_limit_degrees * std::numbers::pi_v<float> / 180.0f);
  const ViewVerdicts verdicts = judge_by_views(particles, offsets, normals, cameras,
                                               view_covers(particles, offsets, cameras), options.per_view, cos_limit);
  std::vector<float> margin = visible_support_margin(verdicts.agreeing, verdicts.seeing, rule);
  const std::size_t before = particles.size();
  threshold_particles<float>(margin, particles, offsets, normals, 0.0f, FLT_MAX);
  std::cout << "  visible support:  kept " << particles.size() << " of " << before << " points\n";
}
