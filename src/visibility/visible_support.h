#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// What the other views could contribute to a particle's support, found with the point renderer.
//
// A view can confirm a particle when the particle lies inside the view's image, its disk reaches
// the surface rendered into that view (not hidden behind other particles, facing the view), and
// its normal turns less than the facing limit away from the direction towards the view's centre.
// Such a view's particles sample the surface there with a density that falls with the cosine of
// that angle, so the support it can give is `per_view` times the cosine: per_view is what one
// view gives head-on (about pi on the pixel level, where each particle's footprint is one pixel
// and one particle sits on each pixel; about 1 on the superpixel level, where both are one
// superpixel). The particle's own view never counts.

struct VisibleViews {
  std::vector<float> expected;  // per particle: sum of per_view * cos(angle) over the views that count
  std::vector<int> views;       // per particle: how many views count
};

// Renders the set into every camera (views one after the other, as they share the buffers) and
// fills both arrays in particle order. cos_limit is the cosine of the facing limit. An empty set
// gives empty arrays and renders nothing.
VisibleViews find_visible_views(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                                const std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                                float per_view, float cos_limit);

// Adds to `visible` what one camera can give, from its contribution flags (1 where the particle's
// disk reaches the rendered surface) and the particles' positions and normals.
void add_visible_view(VisibleViews& visible, const std::vector<int>& flags, const std::vector<Particle>& particles,
                      const std::vector<float>& offsets, const std::vector<float3>& normals, const Camera& camera,
                      float per_view, float cos_limit);
