#include "src/app/support_rule.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <iostream>

#include "src/filter/density.h"
#include "src/particles/threshold_particles.h"
#include "src/visibility/view_agreement.h"

SupportRule support_rule;

std::vector<float> visible_support_margin(const std::vector<float>& support, const std::vector<float>& expected,
                                          const SupportRule& rule) {
  std::vector<float> margin(support.size());
  for (std::size_t i = 0; i < support.size(); ++i)
    margin[i] = support[i] - std::max(rule.share * expected[i], rule.floor);
  return margin;
}

void support_filter(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                    const std::vector<Camera*>& cameras, float radius, float level, float per_view,
                    const SupportRule& rule) {
  if (!rule.visible()) {
    std::vector<float> support;
    compute_particle_support(support, particles, offsets, normals, radius, level);
    threshold_particles<float>(support, particles, offsets, normals, level, FLT_MAX);
    return;
  }
  // Each other view judges by its own surface whether it sees the point and agrees with it: the
  // support is what the agreeing views give, the expectation what all views that see it could.
  const float cos_limit = std::cos(rule.facing_limit_degrees * std::numbers::pi_v<float> / 180.0f);
  const ViewVerdicts verdicts = judge_by_views(particles, offsets, normals, cameras,
                                               view_covers(particles, offsets, cameras), per_view, cos_limit);
  std::vector<float> margin = visible_support_margin(verdicts.agreeing, verdicts.seeing, rule);
  const std::size_t before = particles.size();
  threshold_particles<float>(margin, particles, offsets, normals, 0.0f, FLT_MAX);
  std::cout << "  visible support:  kept " << particles.size() << " of " << before << " points\n";
}
