#pragma once

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

// Numbers as the programs read them from text: option values, view files and the text files of
// other tools, all by one rule. The whole text must be one decimal number: blanks in front are
// skipped, then an optional sign, digits, and for floating point an optional decimal point and
// exponent. Hexadecimal is not taken.
enum class NumberText {
  ok,
  not_a_number,  // anything else
  out_of_range,  // a number, but infinite, not a number (inf, nan) or outside the type's range
};

template <typename T>
NumberText read_number(std::string_view text, T& value) {
  static_assert(std::is_arithmetic_v<T>);
  const std::string s(text);  // the C readers need a terminated string
  if (s.find_first_of("xX") != std::string::npos) return NumberText::not_a_number;
  const char* begin = s.c_str();
  char* end = nullptr;
  errno = 0;
  if constexpr (std::is_floating_point_v<T>) {
    T v;
    if constexpr (std::is_same_v<T, float>) v = std::strtof(begin, &end);
    else v = std::strtod(begin, &end);
    if (end == begin || *end != 0 || end != begin + s.size()) return NumberText::not_a_number;
    if (!std::isfinite(v)) return NumberText::out_of_range;
    value = v;
  } else if constexpr (std::is_signed_v<T>) {
    const long long v = std::strtoll(begin, &end, 10);
    if (end == begin || *end != 0 || end != begin + s.size()) return NumberText::not_a_number;
    if (errno == ERANGE || v < std::numeric_limits<T>::min() || v > std::numeric_limits<T>::max())
      return NumberText::out_of_range;
    value = static_cast<T>(v);
  } else {
    const unsigned long long v = std::strtoull(begin, &end, 10);
    if (end == begin || *end != 0 || end != begin + s.size()) return NumberText::not_a_number;
    // strtoull takes "-1" as the largest value; a sign is refused here instead.
    if (errno == ERANGE || v > std::numeric_limits<T>::max() || s.find('-') != std::string::npos)
      return NumberText::out_of_range;
    value = static_cast<T>(v);
  }
  return NumberText::ok;
}

// True, with the value, when the text is a number of T's range (finite for floating point).
template <typename T>
bool parse_number(std::string_view text, T& value) {
  return read_number(text, value) == NumberText::ok;
}
