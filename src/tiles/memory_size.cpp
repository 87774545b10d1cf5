#include "src/tiles/memory_size.h"

#include <charconv>
#include <cmath>
#include <cstdio>

std::optional<std::uint64_t> parse_memory_size(const std::string& text) {
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [rest, ec] = std::from_chars(text.data(), end, number);
  if (ec != std::errc() || rest == text.data() || number == 0) return std::nullopt;
  std::uint64_t unit = 1;
  if (rest != end) {
    if (rest + 1 != end) return std::nullopt;
    switch (*rest) {
      case 'K': case 'k': unit = 1ull << 10; break;
      case 'M': case 'm': unit = 1ull << 20; break;
      case 'G': case 'g': unit = 1ull << 30; break;
      default: return std::nullopt;
    }
  }
  if (number > UINT64_MAX / unit) return std::nullopt;
  return number * unit;
}

std::string format_memory_size(std::uint64_t bytes) {
  static const struct { char suffix; std::uint64_t unit; } units[] = {{'G', 1ull << 30}, {'M', 1ull << 20}, {'K', 1ull << 10}};
  for (const auto& u : units) {
    if (bytes < u.unit) continue;
    const double tenths = std::ceil(static_cast<double>(bytes) * 10.0 / static_cast<double>(u.unit));
    char text[32];
    if (static_cast<std::uint64_t>(tenths) % 10 == 0 || tenths >= 1000)
      std::snprintf(text, sizeof text, "%.0f%c", std::ceil(tenths / 10.0), u.suffix);
    else
      std::snprintf(text, sizeof text, "%.1f%c", tenths / 10.0, u.suffix);
    return text;
  }
  return std::to_string(bytes);
}
