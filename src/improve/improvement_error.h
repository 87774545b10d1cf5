#pragma once

#include <stdexcept>

// A pass of --improve-cameras could not go on: the model is empty, or the alignment or the
// refinement refused its input. The text names the step and the cause, as one line for standard
// error.
class ImprovementError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};
