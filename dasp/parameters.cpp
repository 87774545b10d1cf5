#include "dasp/parameters.h"

namespace dasp {

Parameters::Parameters()
    : principal_x(319.5f),
      principal_y(239.5f),
      focal(580.0f),
      depth_scale(0.001f),
      weight_spatial(4.0f),
      weight_color(2.0f),
      weight_normal(1.0f),
      iterations(10),
      base_radius(0.018f),
      count(0) {}

}  // namespace dasp
