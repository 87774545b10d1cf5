#include "src/app/my_arg.h"

#include <climits>
#include <cmath>
#include <cstring>
#include <iostream>

#include "formats/number_text.h"

namespace MyArg {

namespace {

bool has_text(const option::Option& option) { return option.arg != nullptr && option.arg[0] != 0; }

option::ArgStatus require_text(const option::Option& option, bool msg) {
  if (msg) printError("Option '", option, "' requires a non-empty argument\n");
  return option::ARG_ILLEGAL;
}

option::ArgStatus require_number(const option::Option& option, bool msg) {
  if (msg) printError("Option '", option, "' requires a numeric argument\n");
  return option::ARG_ILLEGAL;
}

const option::Descriptor* row_of(const option::Descriptor usage[], unsigned index) {
  for (const option::Descriptor* d = usage; !option::is_table_end(*d); ++d)
    if (d->index == index) return d;
  return nullptr;
}

bool is_named(const char* s) { return s != nullptr && s[0] != 0; }

}  // namespace

void printError(const char* prefix, const option::Option& option, const char* suffix) {
  std::cerr << prefix;
  if (option.name) std::cerr.write(option.name, option.namelen);
  std::cerr << suffix;
}

option::ArgStatus NonEmpty(const option::Option& option, bool msg) {
  return has_text(option) ? option::ARG_OK : require_text(option, msg);
}

// A number out of range is still a number here; the range checks below refuse it.
option::ArgStatus Double(const option::Option& option, bool msg) {
  if (!has_text(option)) return require_text(option, msg);
  double v;
  return read_number(option.arg, v) != NumberText::not_a_number ? option::ARG_OK : require_number(option, msg);
}

option::ArgStatus Integer(const option::Option& option, bool msg) {
  if (!has_text(option)) return require_text(option, msg);
  long v;
  return read_number(option.arg, v) != NumberText::not_a_number ? option::ARG_OK : require_number(option, msg);
}

namespace {

// A number option's check: the text must be a number, and the value the run will use (for a
// float setting the double narrowed to float) must pass `fits`.
template <typename T, typename Fits>
option::ArgStatus number_in(const option::Option& option, bool msg, Fits fits, const char* requirement) {
  if (const option::ArgStatus s = std::is_integral_v<T> ? Integer(option, msg) : Double(option, msg);
      s != option::ARG_OK)
    return s;
  T v;
  if (parse_number(option.arg, v) && fits(v)) return option::ARG_OK;
  if (msg) printError("Option '", option, requirement);
  return option::ARG_ILLEGAL;
}

}  // namespace

option::ArgStatus PositiveDouble(const option::Option& option, bool msg) {
  return number_in<double>(
      option, msg, [](double v) { return std::isfinite(static_cast<float>(v)) && static_cast<float>(v) > 0.0f; },
      "' requires a positive finite argument\n");
}

option::ArgStatus NonNegativeDouble(const option::Option& option, bool msg) {
  return number_in<double>(
      option, msg, [](double v) { return std::isfinite(static_cast<float>(v)) && static_cast<float>(v) >= 0.0f; },
      "' requires a finite argument of at least 0\n");
}

option::ArgStatus PositiveInteger(const option::Option& option, bool msg) {
  return number_in<long>(
      option, msg, [](long v) { return v >= 1 && v <= INT_MAX; }, "' requires an argument from 1 to 2147483647\n");
}

option::ArgStatus Share(const option::Option& option, bool msg) {
  return number_in<double>(
      option, msg, [](double v) { return static_cast<float>(v) > 0.0f && static_cast<float>(v) <= 1.0f; },
      "' requires an argument above 0 and at most 1\n");
}

option::ArgStatus PlyColors(const option::Option& option, bool msg) {
  if (!has_text(option)) return require_text(option, msg);
  if (std::strcmp(option.arg, "diffuse") == 0 || std::strcmp(option.arg, "standard") == 0) return option::ARG_OK;
  if (msg) printError("Option '", option, "' requires diffuse or standard\n");
  return option::ARG_ILLEGAL;
}

bool testForMissingOptions(const unsigned* required, const option::Option* options,
                           const option::Descriptor usage[], bool quiet) {
  bool missing = false;
  for (const unsigned* index = required; *index != 0; ++index) {
    if (options[*index]) continue;
    if (!missing && !quiet) std::cerr << "The following options are required:\n";
    missing = true;
    if (quiet) continue;
    // The help row as it stands; a row without help is named by its long, then short option.
    const option::Descriptor* row = row_of(usage, *index);
    if (row && is_named(row->help))
      std::cerr << row->help;
    else if (row && is_named(row->longopt))
      std::cerr << "--" << row->longopt;
    else if (row && is_named(row->shortopt))
      std::cerr << '-' << row->shortopt[0];
    else
      std::cerr << "unknown option";
    std::cerr << '\n';
  }
  return missing;
}

}  // namespace MyArg
