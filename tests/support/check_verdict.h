#pragma once

#include <stdexcept>
#include <string>

// What the Check() of a stage's options says: its message, or "accepted".
template <typename Options>
std::string check_verdict(const Options& options) {
  try {
    options.Check();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "accepted";
}
