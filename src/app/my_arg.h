#pragma once

#include "formats/number_text.h"
#include "src/app/option_parser.h"

// Check functions for the program's options and the test for required options. Messages go to
// standard error, and only when msg is true.
namespace MyArg {

// Writes prefix, the option as typed and suffix to standard error.
void printError(const char* prefix, const option::Option& option, const char* suffix);

// Accepts an argument of at least one character.
option::ArgStatus NonEmpty(const option::Option& option, bool msg);
// Accept a whole decimal number (formats/number_text.h), of any size; no range is checked.
option::ArgStatus Double(const option::Option& option, bool msg);
option::ArgStatus Integer(const option::Option& option, bool msg);

// Numbers with a range, for settings that a run cannot work with otherwise: a radius must be
// positive and finite, strengths and support levels finite and not negative, the superpixel
// count at least 1 and an int.
option::ArgStatus PositiveDouble(const option::Option& option, bool msg);
option::ArgStatus NonNegativeDouble(const option::Option& option, bool msg);
option::ArgStatus PositiveInteger(const option::Option& option, bool msg);
// A share: above 0 and at most 1.
option::ArgStatus Share(const option::Option& option, bool msg);
// The colour property names of the model files: "diffuse" or "standard".
option::ArgStatus PlyColors(const option::Option& option, bool msg);

// The value of an option its check accepted, as the run uses it.
template <typename T>
T value(const option::Option& option) {
  T v{};
  parse_number(option.arg, v);
  return v;
}

// required: zero-terminated list of indices. Returns true when one of them was not given; unless
// quiet, lists the missing ones on standard error under a header.
bool testForMissingOptions(const unsigned* required, const option::Option* options,
                           const option::Descriptor usage[], bool quiet);

}  // namespace MyArg
