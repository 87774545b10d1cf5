#include "src/app/option_usage.h"

#include <algorithm>
#include <string>
#include <vector>

namespace option {

namespace {

using Cells = std::vector<std::string_view>;

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  std::size_t start = 0;
  for (;;) {
    std::size_t end = text.find(separator, start);
    if (end == std::string_view::npos) {
      parts.push_back(text.substr(start));
      return parts;
    }
    parts.push_back(text.substr(start, end - start));
    start = end + 1;
  }
}

// Greedy wrap into pieces of at most room bytes. A break goes after the last word that fits and
// drops the blanks there; a word longer than room is cut. Empty text gives one empty piece.
std::vector<std::string_view> wrap(std::string_view text, std::size_t room) {
  room = std::max<std::size_t>(room, 1);
  std::vector<std::string_view> pieces;
  while (!text.empty()) {
    std::size_t take = text.size();
    if (take > room) {
      take = room;  // cut, unless a word ends within the room
      for (std::size_t b = room; b >= 1; --b) {
        if (text[b] == ' ' && text[b - 1] != ' ') {
          take = b;
          break;
        }
      }
    }
    pieces.push_back(text.substr(0, take));
    text.remove_prefix(take);
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  }
  if (pieces.empty()) pieces.push_back(text);
  return pieces;
}

void write_line(const UsageWriter& writer, std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);  // npos + 1 == 0 clears an all-blank line
  line += '\n';
  writer(line);
}

}  // namespace

void PrintUsageImplementation::printUsage(const UsageWriter& writer, const Descriptor usage[], int width,
                                          int last_column_min_percent, int last_column_own_line_max_percent) {
  std::vector<Cells> lines;
  for (const Descriptor* d = usage; !is_table_end(*d); ++d) {
    if (!d->help) continue;
    for (std::string_view line : split(d->help, '\n')) lines.push_back(split(line, '\t'));
  }

  // Column widths come from the cells that are not the last of their line.
  std::vector<std::size_t> column_width;
  for (const Cells& cells : lines) {
    if (column_width.size() < cells.size() - 1) column_width.resize(cells.size() - 1, 0);
    for (std::size_t c = 0; c + 1 < cells.size(); ++c) column_width[c] = std::max(column_width[c], cells[c].size());
  }

  const long total = std::max(width, 1);
  const long min_room = total * last_column_min_percent / 100;
  const long own_width = std::clamp<long>(total * last_column_own_line_max_percent / 100, 1, total);

  for (const Cells& cells : lines) {
    std::string prefix;
    for (std::size_t c = 0; c + 1 < cells.size(); ++c) {
      prefix += cells[c];
      prefix.append(column_width[c] - cells[c].size(), ' ');
    }
    const long start = static_cast<long>(prefix.size());
    if (total - start >= min_room || total - start >= total) {
      std::vector<std::string_view> pieces = wrap(cells.back(), static_cast<std::size_t>(std::max(total - start, 1L)));
      write_line(writer, prefix + std::string(pieces[0]));
      for (std::size_t i = 1; i < pieces.size(); ++i) write_line(writer, std::string(prefix.size(), ' ') + std::string(pieces[i]));
    } else {
      write_line(writer, prefix);
      if (cells.back().empty()) continue;
      const std::string indent(static_cast<std::size_t>(total - own_width), ' ');
      for (std::string_view piece : wrap(cells.back(), static_cast<std::size_t>(own_width)))
        write_line(writer, indent + std::string(piece));
    }
  }
}

}  // namespace option
