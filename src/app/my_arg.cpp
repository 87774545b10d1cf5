#include "src/app/my_arg.h"

#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "src/app/string_to.h"
#include "src/tiles/memory_size.h"

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

option::ArgStatus Double(const option::Option& option, bool msg) {
  if (!has_text(option)) return require_text(option, msg);
  char* end = nullptr;
  std::strtod(option.arg, &end);
  return end != option.arg && *end == 0 ? option::ARG_OK : require_number(option, msg);
}

option::ArgStatus Integer(const option::Option& option, bool msg) {
  if (!has_text(option)) return require_text(option, msg);
  char* end = nullptr;
  std::strtol(option.arg, &end, 10);
  return end != option.arg && *end == 0 ? option::ARG_OK : require_number(option, msg);
}

// The range checks judge the value the run will use: the text as the settings read it, narrowed
// to the settings' float.
option::ArgStatus PositiveDouble(const option::Option& option, bool msg) {
  if (const option::ArgStatus s = Double(option, msg); s != option::ARG_OK) return s;
  const float v = static_cast<float>(stringTo<double>(option.arg));
  if (std::isfinite(v) && v > 0.0f) return option::ARG_OK;
  if (msg) printError("Option '", option, "' requires a positive finite argument\n");
  return option::ARG_ILLEGAL;
}

option::ArgStatus NonNegativeDouble(const option::Option& option, bool msg) {
  if (const option::ArgStatus s = Double(option, msg); s != option::ARG_OK) return s;
  const float v = static_cast<float>(stringTo<double>(option.arg));
  if (std::isfinite(v) && v >= 0.0f) return option::ARG_OK;
  if (msg) printError("Option '", option, "' requires a finite argument of at least 0\n");
  return option::ARG_ILLEGAL;
}

option::ArgStatus PositiveInteger(const option::Option& option, bool msg) {
  if (const option::ArgStatus s = Integer(option, msg); s != option::ARG_OK) return s;
  const long v = std::strtol(option.arg, nullptr, 10);
  if (v >= 1 && v <= INT_MAX) return option::ARG_OK;
  if (msg) printError("Option '", option, "' requires an argument from 1 to 2147483647\n");
  return option::ARG_ILLEGAL;
}

option::ArgStatus Share(const option::Option& option, bool msg) {
  if (const option::ArgStatus s = Double(option, msg); s != option::ARG_OK) return s;
  const float v = static_cast<float>(stringTo<double>(option.arg));
  if (v > 0.0f && v <= 1.0f) return option::ARG_OK;
  if (msg) printError("Option '", option, "' requires an argument above 0 and at most 1\n");
  return option::ARG_ILLEGAL;
}

option::ArgStatus PlyColors(const option::Option& option, bool msg) {
  if (!has_text(option)) return require_text(option, msg);
  if (std::strcmp(option.arg, "diffuse") == 0 || std::strcmp(option.arg, "standard") == 0) return option::ARG_OK;
  if (msg) printError("Option '", option, "' requires diffuse or standard\n");
  return option::ARG_ILLEGAL;
}

option::ArgStatus MemorySize(const option::Option& option, bool msg) {
  if (!has_text(option)) return require_text(option, msg);
  if (parse_memory_size(option.arg)) return option::ARG_OK;
  if (msg) printError("Option '", option, "' requires a size in bytes, with K, M or G (such as 8G)\n");
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
