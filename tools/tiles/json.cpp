#include "tools/tiles/json.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace tiles {
namespace {

struct Reader {
  const std::string& s;
  std::size_t i = 0;

  [[noreturn]] void fail(const std::string& what) const {
    throw std::runtime_error("malformed JSON at byte " + std::to_string(i) + ": " + what);
  }
  void space() {
    while (i < s.size() && std::isspace(static_cast<unsigned char>(s[i]))) ++i;
  }
  bool take(char c) {
    space();
    if (i < s.size() && s[i] == c) {
      ++i;
      return true;
    }
    return false;
  }
  void expect(char c) {
    if (!take(c)) fail(std::string("expected '") + c + "'");
  }
  bool word(const char* w) {
    const std::string text(w);
    if (s.compare(i, text.size(), text) != 0) return false;
    i += text.size();
    return true;
  }
  std::string string() {
    expect('"');
    std::string out;
    while (i < s.size() && s[i] != '"') {
      char c = s[i++];
      if (c == '\\') {
        if (i >= s.size()) fail("unfinished escape");
        const char e = s[i++];
        static const std::string plain = "\"\\/", coded = "bfnrt", meant = "\b\f\n\r\t";
        if (plain.find(e) != std::string::npos) c = e;
        else if (coded.find(e) != std::string::npos) c = meant[coded.find(e)];
        else if (e == 'u' && i + 4 <= s.size()) {
          const long code = std::strtol(s.substr(i, 4).c_str(), nullptr, 16);
          i += 4;
          if (code > 0x7F) fail("only ASCII escapes are read");
          c = static_cast<char>(code);
        } else fail("unknown escape");
      }
      out += c;
    }
    expect('"');
    return out;
  }
  Json value() {
    space();
    Json v;
    if (i >= s.size()) fail("unexpected end");
    const char c = s[i];
    if (c == '{') {
      v.kind = Json::Kind::object;
      ++i;
      if (take('}')) return v;
      do {
        space();
        std::string name = string();
        expect(':');
        v.members[name] = value();
      } while (take(','));
      expect('}');
    } else if (c == '[') {
      v.kind = Json::Kind::array;
      ++i;
      if (take(']')) return v;
      do v.items.push_back(value());
      while (take(','));
      expect(']');
    } else if (c == '"') {
      v.kind = Json::Kind::string;
      v.text = string();
    } else if (word("true") || word("false")) {
      v.kind = Json::Kind::boolean;
      v.boolean = s[i - 1] == 'e' && s[i - 2] == 'u';
    } else if (word("null")) {
      v.kind = Json::Kind::null;
    } else {
      const std::size_t start = i;
      while (i < s.size() && (std::isdigit(static_cast<unsigned char>(s[i])) || std::string("+-.eE").find(s[i]) != std::string::npos)) ++i;
      if (i == start) fail("unexpected character");
      v.kind = Json::Kind::number;
      v.text = s.substr(start, i - start);
    }
    return v;
  }
};

}  // namespace

const Json& Json::at(const std::string& name) const {
  const auto it = members.find(name);
  if (kind != Kind::object || it == members.end()) throw std::runtime_error("no \"" + name + "\" in the plan");
  return it->second;
}

double Json::number() const {
  char* end = nullptr;
  const double v = std::strtod(text.c_str(), &end);
  if (kind != Kind::number || end != text.c_str() + text.size()) throw std::runtime_error("a number was expected");
  return v;
}

long long Json::whole() const {
  char* end = nullptr;
  const long long v = std::strtoll(text.c_str(), &end, 10);
  if (kind != Kind::number || end != text.c_str() + text.size()) throw std::runtime_error("a whole number was expected");
  return v;
}

const std::string& Json::string() const {
  if (kind != Kind::string) throw std::runtime_error("a string was expected");
  return text;
}

Json parse_json(const std::string& text) {
  Reader r{text};
  Json v = r.value();
  r.space();
  if (r.i != text.size()) r.fail("text after the value");
  return v;
}

std::string json_string(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') out += '\\';
    if (static_cast<unsigned char>(c) < 0x20) {
      char code[8];
      std::snprintf(code, sizeof code, "\\u%04x", c);
      out += code;
    } else {
      out += c;
    }
  }
  return out + "\"";
}

}  // namespace tiles
