#include "src/app/option_parser.h"

#include <cstring>

namespace option {

namespace {

bool is_empty(const char* s) { return s == nullptr || *s == 0; }

// The row that takes every option no other row matches: the first row without names.
const Descriptor* catch_all_row(const Descriptor usage[]) {
  for (const Descriptor* d = usage; !is_table_end(*d); ++d)
    if (is_empty(d->shortopt) && is_empty(d->longopt) && d->check_arg) return d;
  return nullptr;
}

const Descriptor* find_long(const Descriptor usage[], const char* name, std::size_t len) {
  for (const Descriptor* d = usage; !is_table_end(*d); ++d)
    if (!is_empty(d->longopt) && std::strlen(d->longopt) == len && std::strncmp(d->longopt, name, len) == 0) return d;
  return nullptr;
}

const Descriptor* find_short(const Descriptor usage[], char c) {
  for (const Descriptor* d = usage; !is_table_end(*d); ++d)
    if (d->shortopt && std::strchr(d->shortopt, c)) return d;
  return nullptr;
}

// Runs the row's check on the candidate argument in option.arg. Returns false when the argument
// is illegal; otherwise leaves option.arg at the accepted argument or null.
bool check(Option& option, bool print_errors) {
  ArgStatus status = option.desc->check_arg ? option.desc->check_arg(option, print_errors) : ARG_NONE;
  if (status == ARG_ILLEGAL) return false;
  if (status == ARG_NONE) option.arg = nullptr;
  return true;
}

}  // namespace

bool is_table_end(const Descriptor& d) {
  return is_empty(d.shortopt) && is_empty(d.longopt) && d.check_arg == nullptr && d.help == nullptr;
}

ArgStatus Arg::None(const Option&, bool) { return ARG_NONE; }

template <class Action>
bool Parser::workhorse(const Descriptor usage[], int numargs, const char* const* args, Action& action,
                       bool print_errors) {
  if (args == nullptr) numargs = 0;
  const Descriptor* fallback = catch_all_row(usage);

  // One occurrence of row d (the catch-all when d is null) with its candidate argument: -1 when
  // parsing fails, 1 when the option took the argument, 0 when not.
  const auto take = [&](const Descriptor* d, const char* name, int namelen, const char* arg) {
    Option option;
    option.desc = d ? d : fallback;
    option.name = name;
    option.namelen = namelen;
    option.arg = arg;
    // A table without a catch-all row takes no unknown option.
    if (!option.desc || !check(option, print_errors) || !action.perform(option)) return -1;
    return option.arg != nullptr ? 1 : 0;
  };

  while (numargs > 0 && args[0] != nullptr) {
    const char* a = args[0];
    if (std::strcmp(a, "--") == 0) {
      ++args;
      --numargs;
      break;
    }
    if (a[0] != '-' || a[1] == 0) break;  // not an option ("-" alone included)

    const char* next_arg = numargs > 1 ? args[1] : nullptr;
    int used = 1;  // elements of args taken by this option
    if (a[1] == '-') {
      const char* long_name = a + 2;
      const std::size_t len = std::strcspn(long_name, "=");
      const bool attached = long_name[len] == '=';
      const int took = take(find_long(usage, long_name, len), a, static_cast<int>(long_name + len - a),
                            attached ? long_name + len + 1 : next_arg);
      if (took < 0) return false;
      if (took && !attached) used = 2;
    } else {
      // A group of short options; an option that takes an argument ends the group.
      for (const char* p = a + 1; *p; ++p) {
        const bool attached = p[1] != 0;
        const int took = take(find_short(usage, *p), p, 1, attached ? p + 1 : next_arg);
        if (took < 0) return false;
        if (took) {
          if (!attached) used = 2;
          break;
        }
      }
    }
    args += used;
    numargs -= used;
  }
  action.finished(numargs, args);
  return true;
}

template bool Parser::workhorse<Stats::CountOptionsAction>(const Descriptor[], int, const char* const*,
                                                           Stats::CountOptionsAction&, bool);
template bool Parser::workhorse<Parser::StoreOptionAction>(const Descriptor[], int, const char* const*,
                                                           Parser::StoreOptionAction&, bool);

Stats::Stats(const Descriptor usage[], int argc, const char* const* argv) {
  unsigned highest = 0;
  for (const Descriptor* d = usage; !is_table_end(*d); ++d)
    if (d->index > highest) highest = d->index;
  options_max = highest + 2;

  unsigned count = 0;
  CountOptionsAction action{&count};
  Parser::workhorse(usage, argc, argv, action, false);
  buffer_max = count + 1;
}

bool Parser::StoreOptionAction::perform(Option& option) {
  if (parser->options_count >= bufmax) return true;
  Option& current = buffer[parser->options_count++];
  current = option;
  current.next = current.prev = nullptr;

  unsigned index = option.desc->index;
  for (int k = parser->options_count - 2; k >= 0; --k) {
    if (buffer[k].desc->index == index) {
      buffer[k].next = &current;
      current.prev = &buffer[k];
      break;
    }
  }
  // The array slot is a copy of the first occurrence; keep its link to the second one.
  if (!options[index])
    options[index] = current;
  else if (current.prev && !current.prev->prev)
    options[index].next = &current;
  return true;
}

void Parser::StoreOptionAction::finished(int numargs, const char* const* args) {
  for (int i = 0; i < numargs && args[i] != nullptr; ++i) parser->non_options.push_back(args[i]);
}

Parser::Parser(const Descriptor usage[], int argc, const char* const* argv, Option options[], Option buffer[],
               int bufmax) {
  StoreOptionAction action{this, options, buffer, bufmax};
  error = !workhorse(usage, argc, argv, action, true);
}

}  // namespace option
