#pragma once

#include <vector>

// A small command-line option parser driven by a table of descriptors.
//
// Parsing is in POSIX order: it ends at "--" or at the first argument that is not an option. Long
// options are "--name value" or "--name=value", never abbreviated; short options may be grouped
// ("-ho") and take "-o value" or "-ovalue". An option that matches no row falls on the catch-all
// row (the first row without names), and that row's check decides about it. Every occurrence is
// stored; the option array holds the first one, so the first occurrence wins when read.
namespace option {

// Verdict of a check function on an option's candidate argument.
enum ArgStatus {
  ARG_NONE,     // the option takes no argument; the candidate is left alone
  ARG_OK,       // the candidate is the option's argument
  ARG_ILLEGAL,  // the argument is wrong: parsing fails
};

struct Option;
using CheckArg = ArgStatus (*)(const Option& option, bool msg);

// One row of the option table. A row whose names, check and help are all empty ends the table.
struct Descriptor {
  unsigned index;        // slot in the option array; several rows may share one
  int type;              // free for the caller
  const char* shortopt;  // option letters, each one an alias ("" for none)
  const char* longopt;   // name without dashes ("" for none)
  CheckArg check_arg;    // called with the candidate argument in Option::arg
  const char* help;      // usage text, columns separated by tabs
};

bool is_table_end(const Descriptor& d);

// One occurrence of an option on the command line.
struct Option {
  const Descriptor* desc = nullptr;  // matched row; null when the option was not given
  const char* name = nullptr;        // the option as typed: "--name" or the letter of a short option
  int namelen = 0;                   // length of name (a long option's "=value" is not part of it)
  const char* arg = nullptr;         // argument text, null when there is none
  Option* next = nullptr;            // next occurrence of the same index
  Option* prev = nullptr;            // previous occurrence of the same index

  explicit operator bool() const { return desc != nullptr; }
  unsigned index() const { return desc ? desc->index : 0; }
};

namespace Arg {
// For options without an argument.
ArgStatus None(const Option& option, bool msg);
}  // namespace Arg

// Count pass: how many occurrences and option slots the store pass needs.
struct Stats {
  unsigned buffer_max = 1;   // occurrences + 1, so that the buffer is never empty
  unsigned options_max = 1;  // highest table index + 2: one spare slot past the highest index

  Stats() = default;
  Stats(const Descriptor usage[], int argc, const char* const* argv);

  struct CountOptionsAction {
    unsigned* count;
    bool perform(Option&) {
      ++*count;
      return true;
    }
    void finished(int, const char* const*) {}
  };
};

// Store pass: fills the option array (first occurrence per index) and the occurrence buffer.
struct Parser {
  int options_count = 0;                 // occurrences stored in the buffer
  bool error = false;                    // a check function rejected an argument
  std::vector<const char*> non_options;  // the arguments behind the options, in order

  Parser() = default;
  Parser(const Descriptor usage[], int argc, const char* const* argv, Option options[], Option buffer[], int bufmax);

  struct StoreOptionAction {
    Parser* parser;
    Option* options;
    Option* buffer;
    int bufmax;
    // Occurrences beyond bufmax are parsed and checked but not stored.
    bool perform(Option& option);
    void finished(int numargs, const char* const* args);
  };

  // The one parsing loop. Hands every recognised occurrence to action.perform and the arguments
  // left when parsing ends to action.finished. print_errors is handed to the check functions as
  // their msg flag. Returns false when a check rejected an argument.
  template <class Action>
  static bool workhorse(const Descriptor usage[], int numargs, const char* const* args, Action& action,
                        bool print_errors);
};

}  // namespace option
