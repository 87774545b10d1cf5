#pragma once

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "formats/number_text.h"

// The command line of the tools: options with values, words, and files behind "--". A program
// with commands (plan, run, ...) takes the first word as the command and reads the arguments
// behind it with that command's options. quillara keeps its own table parser; the number rule is
// the same for both (formats/number_text.h).
namespace cli {

// A mistake on the command line: one line without the program's name.
struct UsageError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// An option's value as given, and the option as typed, for messages.
struct OptionValue {
  std::string option;
  std::string text;

  // Throws UsageError "OPTION needs WHAT, got 'TEXT'".
  [[noreturn]] void refuse(const std::string& what) const;
  // The text, or UsageError "OPTION needs WHAT" when it is empty.
  const std::string& non_empty(const std::string& what) const;
  // The text as a number from low to high, or refuse(what).
  template <typename T>
  T number(T low, T high, const std::string& what) const {
    T value;
    if (!parse_number(text, value) || !(value >= low && value <= high)) refuse(what);
    return value;
  }
};

using Take = std::function<void(const OptionValue&)>;

struct Option {
  std::string name;   // "--labels"
  std::string alias;  // "-o", or empty
  Take take;          // takes the value, in command-line order; throws UsageError for one it cannot use
  bool flag = false;  // takes no value: the option alone switches something on (take gets an empty text)
};

// Takes for the common options: a text that must not be empty, a number from low to high.
Take store_text(std::string& target, const std::string& what);
template <typename T>
Take store_number(T& target, T low, T high, const std::string& what) {
  return [&target, low, high, what](const OptionValue& v) { target = v.number(low, high, what); };
}

struct CommandLine {
  std::vector<std::string> words;  // the arguments that are not options, in order
  bool dashes = false;             // "--" was given
  std::vector<std::string> files;  // everything behind the first "--"
};

// Reads the arguments behind the program's name. An argument that starts with '-' is an option:
// "NAME VALUE", "--NAME=VALUE" or "ALIAS VALUE", a flag alone; a value is taken whatever it looks like. With
// files_behind_dashes, everything behind the first "--" is a file; without, "--" is refused as an
// unknown option. Throws UsageError: "unknown option 'ARG'", "option NAME needs a value", "option
// NAME takes no value", or what an option's take throws.
CommandLine parse_command_line(const std::vector<std::string>& args, const std::vector<Option>& options,
                               bool files_behind_dashes = false);

// "unexpected argument 'WORD'" and the hint, for the first word, when there is one.
void expect_no_words(const CommandLine& line, const std::string& hint = "");

}  // namespace cli
