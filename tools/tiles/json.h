#pragma once

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

// A small JSON value and reader for the plan file: objects, arrays, strings, numbers, true, false
// and null. Numbers keep their text, so that floats written with 9 digits read back exactly.
namespace tiles {

struct Json {
  enum class Kind { null, boolean, number, string, array, object } kind = Kind::null;
  bool boolean = false;
  std::string text;  // the number's text or the string
  std::vector<Json> items;
  std::map<std::string, Json> members;

  // The member or item asked for; throws std::runtime_error naming it when absent or of another kind.
  const Json& at(const std::string& name) const;
  double number() const;
  long long whole() const;
  const std::string& string() const;
  bool is_null() const { return kind == Kind::null; }
};

// Parses the whole text; throws std::runtime_error with the offset of the first fault.
Json parse_json(const std::string& text);

// The string as a JSON string literal.
std::string json_string(const std::string& text);

}  // namespace tiles
