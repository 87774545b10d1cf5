#pragma once

#include <string>
#include <vector>

#include "tools/import/import_error.h"
#include "formats/number_text.h"

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

// Parses fields[first .. first + count) as numbers or fails at the line with `what`.
std::vector<double> numbers_at(const TextFile& file, size_t line, const std::vector<std::string>& fields, size_t first,
                               size_t count, const char* what);

}  // namespace importer
