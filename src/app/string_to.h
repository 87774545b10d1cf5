#pragma once

#include <sstream>
#include <string>

// Reads a value from text through a string stream. What the stream cannot read leaves the value
// the stream stores on failure (0 for numbers).
template <typename T>
T stringTo(const std::string& text) {
  T value{};
  std::istringstream stream(text);
  stream >> value;
  return value;
}
