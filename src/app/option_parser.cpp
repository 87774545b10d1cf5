#include "src/app/option_parser.h"

#include <cstdio>
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

// Exact name first; with min_abbr_len > 0 a prefix of that length or more that fits one row only.
const Descriptor* find_long(const Descriptor usage[], const char* name, std::size_t len, int min_abbr_len) {
  const Descriptor* prefix_row = nullptr;
  int prefix_rows = 0;
  for (const Descriptor* d = usage; !is_table_end(*d); ++d) {
    if (is_empty(d->longopt)) continue;
    std::size_t n = std::strlen(d->longopt);
    if (std::strncmp(d->longopt, name, len) != 0 || len > n) continue;
    if (len == n) return d;
    if (min_abbr_len > 0 && len >= static_cast<std::size_t>(min_abbr_len)) {
      prefix_row = d;
      ++prefix_rows;
    }
  }
  return prefix_rows == 1 ? prefix_row : nullptr;
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

void report_unknown(const Option& option, bool print_errors) {
  if (!print_errors) return;
  std::fputs("Unknown option '", stderr);
  std::fwrite(option.name, 1, static_cast<std::size_t>(option.namelen), stderr);
  std::fputs("'\n", stderr);
}

}  // namespace

bool is_table_end(const Descriptor& d) {
  return is_empty(d.shortopt) && is_empty(d.longopt) && d.check_arg == nullptr && d.help == nullptr;
}

int Option::count() const {
  if (!desc) return 0;
  const Option* p = this;
  while (p->prev) p = p->prev;
  int n = 0;
  for (; p; p = p->next) ++n;
  return n;
}

ArgStatus Arg::None(const Option&, bool) { return ARG_NONE; }

template <class Action>
bool Parser::workhorse(bool gnu, const Descriptor usage[], int numargs, const char* const* args,
                       Action& action, bool single_minus_longopt, bool print_errors, int min_abbr_len) {
  if (args == nullptr) numargs = 0;
  const Descriptor* fallback = catch_all_row(usage);

  while (numargs > 0 && args[0] != nullptr) {
    const char* a = args[0];
    if (std::strcmp(a, "--") == 0) {
      ++args;
      --numargs;
      break;
    }
    if (a[0] != '-' || a[1] == 0) {  // not an option ("-" alone included)
      if (!gnu) break;
      action.non_option(a);
      ++args;
      --numargs;
      continue;
    }

    const char* next_arg = numargs > 1 ? args[1] : nullptr;
    int used = 1;  // elements of args taken by this option

    const char* long_name = nullptr;
    const Descriptor* d = nullptr;
    if (a[1] == '-') {
      long_name = a + 2;
    } else if (single_minus_longopt) {
      d = find_long(usage, a + 1, std::strcspn(a + 1, "="), min_abbr_len);
      if (d) long_name = a + 1;
    }

    if (long_name) {
      std::size_t len = std::strcspn(long_name, "=");
      if (!d) d = find_long(usage, long_name, len, min_abbr_len);
      if (!d) d = fallback;
      Option option;
      option.desc = d;
      option.name = a;
      option.namelen = static_cast<int>(long_name + len - a);
      if (!d) {
        report_unknown(option, print_errors);
        return false;
      }
      bool attached = long_name[len] == '=';
      option.arg = attached ? long_name + len + 1 : next_arg;
      if (!check(option, print_errors)) return false;
      if (!attached && option.arg) used = 2;
      if (!action.perform(option)) return false;
    } else {
      // A group of short options; an option that takes an argument ends the group.
      for (const char* p = a + 1; *p; ++p) {
        d = find_short(usage, *p);
        if (!d) d = fallback;
        Option option;
        option.desc = d;
        option.name = p;
        option.namelen = 1;
        if (!d) {
          report_unknown(option, print_errors);
          return false;
        }
        bool attached = p[1] != 0;
        option.arg = attached ? p + 1 : next_arg;
        if (!check(option, print_errors)) return false;
        bool takes_arg = option.arg != nullptr;
        if (takes_arg && !attached) used = 2;
        if (!action.perform(option)) return false;
        if (takes_arg) break;
      }
    }
    args += used;
    numargs -= used;
  }
  action.finished(numargs, args);
  return true;
}

template bool Parser::workhorse<Stats::CountOptionsAction>(bool, const Descriptor[], int, const char* const*,
                                                           Stats::CountOptionsAction&, bool, bool, int);
template bool Parser::workhorse<Parser::StoreOptionAction>(bool, const Descriptor[], int, const char* const*,
                                                           Parser::StoreOptionAction&, bool, bool, int);

Stats::Stats(bool gnu, const Descriptor usage[], int argc, const char* const* argv, int min_abbr_len,
             bool single_minus_longopt) {
  unsigned highest = 0;
  for (const Descriptor* d = usage; !is_table_end(*d); ++d)
    if (d->index > highest) highest = d->index;
  options_max = highest + 2;

  unsigned count = 0;
  CountOptionsAction action{&count};
  Parser::workhorse(gnu, usage, argc, argv, action, single_minus_longopt, false, min_abbr_len);
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

Parser::Parser(bool gnu, const Descriptor usage[], int argc, const char* const* argv, Option options[],
               Option buffer[], int bufmax, int min_abbr_len, bool single_minus_longopt) {
  StoreOptionAction action{this, options, buffer, bufmax};
  error = !workhorse(gnu, usage, argc, argv, action, single_minus_longopt, true, min_abbr_len);
}

}  // namespace option
