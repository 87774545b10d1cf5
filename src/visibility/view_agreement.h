#pragma once

#include <vector>

#include "device/vector_types.h"
#include "src/core/camera.h"
#include "src/core/particle.h"

// Whether the other views' own surfaces agree with a particle, without rendering anything.
//
// Every particle belongs to one view and covers the pixels of that view within its footprint (one
// pixel on the pixel level, a superpixel's radius on the superpixel level) around the pixel it
// projects to, a pixel going to the nearest particle. A view's particles are therefore that view's
// surface, as measured and filtered. A particle projected into another view lands on pixels covered by
// that view's particles, and one of three things holds there:
//  - it lies on their surface: within one footprint of the tangent plane of one of the particles
//    covering the 3 x 3 pixels around it and within two footprints of that particle divided by the
//    cosine at which the view sees that particle's surface (the view's samples lie that much farther
//    apart along a slanted surface; the cosine counts at least that of the facing limit), with
//    normals not facing apart: the view agrees;
//  - it lies in front of all of them by more than their footprint: the view sees through the
//    place where the particle is, and contradicts it;
//  - otherwise it is hidden behind that view's surface, or the view has no surface there: the
//    view says nothing.
// A view takes part only when the particle's normal turns less than the facing limit towards it
// (cos_limit is the cosine of that limit) and the particle lands on its image; the particle's own
// view never does. What a view can confirm falls with the cosine of that angle, as it samples the
// surface more sparsely, so each view weighs `per_view` times the cosine.

// Which particle of a view covers each pixel, -1 for none; width * height entries, row by row.
struct ViewCover {
  int width = 0, height = 0;
  std::vector<int> particle;
};

// One cover per camera, in camera order. Particles of views not in `cameras` cover nothing.
std::vector<ViewCover> view_covers(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                                   const std::vector<Camera*>& cameras);

struct ViewVerdicts {
  std::vector<float> agreeing;  // per particle: per_view * cos summed over the views that agree
  std::vector<float> seeing;    // the same over the views that agree or contradict
  std::vector<int> agreeing_views, seeing_views;
};

// The verdicts of every view in `cameras`, with its cover in `covers`, on every particle.
ViewVerdicts judge_by_views(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                            const std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                            const std::vector<ViewCover>& covers, float per_view, float cos_limit);
