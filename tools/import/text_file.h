#pragma once

#include <charconv>
#include <cmath>
#include <string>
#include <vector>

#include "tools/import/import_error.h"

// Line-oriented reading of the text files of the other tools, with errors that name the file and
// the line.
namespace importer {

struct TextFile {
  std::string path;
  std::vector<std::string> lines;  // without line ends (a trailing '\r' is dropped too)

  // "PATH: line N: cause".
  [[noreturn]] void fail_at(size_t index, const std::string& cause) const {
    fail(path, "line " + std::to_string(index + 1) + ": " + cause);
  }
};

// Reads the whole file; a file that can't be opened fails with "cannot open".
TextFile read_text_file(const std::string& path);

// Fields separated by blanks or tabs.
std::vector<std::string> split_fields(const std::string& line);

// True for a line holding only blanks, or a comment starting with '#'.
bool is_blank_or_comment(const std::string& line);

// The whole field as a number (finite for floating point); false otherwise.
template <typename T>
bool parse_number(const std::string& field, T& value) {
  const char* end = field.data() + field.size();
  const auto [ptr, ec] = std::from_chars(field.data(), end, value);
  if (ec != std::errc() || ptr != end || field.empty()) return false;
  if constexpr (std::is_floating_point_v<T>) return std::isfinite(value);
  return true;
}

// Parses fields[first .. first + count) as numbers or fails at the line with `what`.
std::vector<double> numbers_at(const TextFile& file, size_t line, const std::vector<std::string>& fields, size_t first,
                               size_t count, const char* what);

}  // namespace importer
