#include "tools/import/text_file.h"

#include <fstream>

namespace importer {

TextFile read_text_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) fail(path, "cannot open");
  TextFile file{path, {}};
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    file.lines.push_back(line);
  }
  if (in.bad()) fail(path, "cannot read");
  return file;
}

std::vector<std::string> split_fields(const std::string& line) {
  std::vector<std::string> fields;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    const size_t start = i;
    while (i < line.size() && line[i] != ' ' && line[i] != '\t') ++i;
    if (i > start) fields.push_back(line.substr(start, i - start));
  }
  return fields;
}

bool is_blank_or_comment(const std::string& line) {
  const size_t first = line.find_first_not_of(" \t");
  return first == std::string::npos || line[first] == '#';
}

std::vector<double> numbers_at(const TextFile& file, size_t line, const std::vector<std::string>& fields, size_t first,
                               size_t count, const char* what) {
  std::vector<double> values(count);
  for (size_t k = 0; k < count; ++k)
    if (first + k >= fields.size() || !parse_number(fields[first + k], values[k]))
      file.fail_at(line, std::string("expected ") + what);
  return values;
}

}  // namespace importer
