#include "formats/view_file.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <vector>

#include "formats/number_text.h"
#include "formats/text_file.h"

namespace {

constexpr int kTokens = 25;
// 25 tokens fit in far less, and a wrong argument that names a huge file costs no memory.
constexpr std::size_t kLargestViewFile = 1 << 20;
// Largest deviation of R^T R from the identity that still counts as a rotation: view files
// written with four or more decimals stay well inside it.
constexpr double kRotationTolerance = 1e-3;

bool is_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

// The first `limit` white-space separated words of text.
std::vector<std::string_view> split(std::string_view text, int limit) {
  std::vector<std::string_view> words;
  std::size_t i = 0;
  while (static_cast<int>(words.size()) < limit) {
    while (i < text.size() && is_space(text[i])) ++i;
    if (i == text.size()) break;
    const std::size_t start = i;
    while (i < text.size() && !is_space(text[i])) ++i;
    words.push_back(text.substr(start, i - start));
  }
  return words;
}

// What token k (from 1) stands for, for messages.
const char* token_role(int k) {
  if (k <= 9) return "K";
  if (k <= 18) return "R";
  if (k <= 21) return "t";
  return k == 22 ? "width" : "height";
}

std::string describe(int k, std::string_view word) {
  return "token " + std::to_string(k) + " (" + token_role(k) + ") is \"" + std::string(word) + "\"";
}

std::string number_text(double v) {
  std::ostringstream s;
  s << v;
  return s.str();
}

// The rotation is stored row by row: element (r, c) is R[3 * r + c].
std::string rotation_problem(const double* R) {
  const auto at = [R](int r, int c) { return R[3 * r + c]; };
  double deviation = 0.0;
  for (int a = 0; a < 3; ++a)
    for (int b = 0; b < 3; ++b) {
      const double dot = at(0, a) * at(0, b) + at(1, a) * at(1, b) + at(2, a) * at(2, b);  // columns a and b
      deviation = std::max(deviation, std::fabs(dot - (a == b ? 1.0 : 0.0)));
    }
  if (!(deviation <= kRotationTolerance))
    return "the rotation (tokens 10 to 18) is not orthonormal: R^T R differs from the identity by up to " +
           number_text(deviation);
  const double det = at(0, 0) * (at(1, 1) * at(2, 2) - at(1, 2) * at(2, 1)) -
                     at(0, 1) * (at(1, 0) * at(2, 2) - at(1, 2) * at(2, 0)) +
                     at(0, 2) * (at(1, 0) * at(2, 1) - at(1, 1) * at(2, 0));
  if (det < 0.0) return "the rotation (tokens 10 to 18) is a reflection: its determinant is " + number_text(det);
  return {};
}

}  // namespace

ViewFileError::ViewFileError(const std::string& file, const std::string& cause)
    : std::runtime_error("view file \"" + file + "\": " + cause) {}

std::string parse_view_file(std::string_view text, ViewFile& view) {
  const std::vector<std::string_view> words = split(text, kTokens);
  if (static_cast<int>(words.size()) < kTokens)
    return "has " + std::to_string(words.size()) +
           " tokens, expected 25 (K: 9, R: 9, t: 3, width, height, colour image, depth map)";

  double* numbers[21];
  for (int i = 0; i < 9; ++i) numbers[i] = &view.K[i];
  for (int i = 0; i < 9; ++i) numbers[9 + i] = &view.R[i];
  for (int i = 0; i < 3; ++i) numbers[18 + i] = &view.t[i];
  for (int k = 1; k <= 21; ++k) {
    float v;
    if (!parse_number(words[k - 1], v)) return describe(k, words[k - 1]) + ", not a finite number";
    *numbers[k - 1] = v;
  }
  if (!parse_number(words[21], view.width) || view.width < 1)
    return describe(22, words[21]) + ", not a whole number of at least 1";
  if (!parse_number(words[22], view.height) || view.height < 1)
    return describe(23, words[22]) + ", not a whole number of at least 1";
  view.image_path = words[23];
  view.depth_path = words[24];

  // Every radius of a run divides by fx of the first view, and projection by fx and fy.
  if (!(view.K[0] > 0.0 && view.K[4] > 0.0))
    return "the focal lengths fx and fy (tokens 1 and 5) must be positive, got " + number_text(view.K[0]) + " and " +
           number_text(view.K[4]);
  return rotation_problem(view.R);
}

ViewFile read_view_file(const std::string& path) {
  ViewFile view;
  std::string text;
  try {
    text = read_text(path, kLargestViewFile);
  } catch (const FileError& e) {
    throw ViewFileError(path, e.cause);
  }
  if (const std::string problem = parse_view_file(text, view); !problem.empty()) throw ViewFileError(path, problem);
  return view;
}

std::string format_view_file(const ViewFile& v) {
  std::string out;
  char buf[64];
  auto row = [&](const double* values, int n) {
    for (int i = 0; i < n; ++i) {
      std::snprintf(buf, sizeof buf, i ? " %.9g" : "%.9g", values[i] + 0.0);  // + 0.0 turns -0 into 0
      out += buf;
    }
    out += '\n';
  };
  for (int r = 0; r < 3; ++r) row(v.K + 3 * r, 3);
  for (int r = 0; r < 3; ++r) row(v.R + 3 * r, 3);
  row(v.t, 3);
  out += std::to_string(v.width) + ' ' + std::to_string(v.height) + '\n';
  return out + v.image_path + '\n' + v.depth_path + '\n';
}

void write_view_file(const std::string& path, const ViewFile& view) { write_text(path, format_view_file(view)); }
