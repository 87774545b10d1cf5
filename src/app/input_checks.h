#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "image/CMatrix.h"

// The depths the input actually has: its pixels with a positive depth.
struct InputDepths {
  std::size_t pixels = 0;
  float min = 0.0f;
  float max = 0.0f;
  float median = 0.0f;
};

InputDepths measure_input_depths(const std::vector<CMatrix<float>>& depthmaps);

// A warning line when the average depth lies far outside the input's depths (below half the
// smallest or above twice the largest) or the input has no depth at all; empty otherwise. The
// run goes on: the average depth only sets the radii.
std::string depth_avg_warning(float average_depth, const InputDepths& depths);
