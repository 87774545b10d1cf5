#include "tools/cli/shell_quote.h"

#include <cstring>

std::string shell_quote(const std::string& word) {
  const auto plain = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           std::strchr("_-./,:=+@%", c) != nullptr;
  };
  bool quote = word.empty();
  for (char c : word) quote = quote || c == 0 || !plain(c);
  if (!quote) return word;
  std::string out = "'";
  for (char c : word) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return out + "'";
}
