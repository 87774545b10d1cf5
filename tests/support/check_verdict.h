#pragma once

#include <stdexcept>
#include <string>

// What the Check() of a stage's options says after change(options): its message, or "accepted".
template <typename Options, typename Change>
std::string check_verdict(Options options, Change&& change) {
  change(options);
  try {
    options.Check();
  } catch (const std::runtime_error& e) {
    return e.what();
  }
  return "accepted";
}
