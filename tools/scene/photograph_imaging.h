#pragma once

#include <cstdint>

#include "tools/scene/render_view.h"

namespace scene {

// What a camera adds to a photograph, per view: exposure and black level.
struct Exposure {
  double gain = 1.0;    // 0.8 to 1.2
  double offset = 0.0;  // -0.04 to 0.04 of full scale
};

// The exposure of view `view`, drawn from the seed and the view.
Exposure view_exposure(uint64_t seed, int view);

// Turns the rendered colours of a view into a photograph of them, in place: a slight blur (3 x 3
// binomial, about 0.7 pixels), the view's gain and offset, sensor noise of 2 grey levels
// (normal, per pixel and channel, from the seed and the view) and rounding to 8 bits.
void develop_photograph(RenderedView& view, uint64_t seed, int view_index);

}  // namespace scene
