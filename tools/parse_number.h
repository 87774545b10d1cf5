#pragma once

#include <charconv>
#include <cmath>
#include <string>
#include <system_error>
#include <type_traits>

// The whole text as a number (finite for floating point); false otherwise. Shared by the tools'
// argument and text-file readers.
template <typename T>
bool parse_number(const std::string& text, T& value) {
  const char* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (ec != std::errc() || ptr != end || text.empty()) return false;
  if constexpr (std::is_floating_point_v<T>) return std::isfinite(value);
  return true;
}
