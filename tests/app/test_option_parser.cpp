#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "src/app/my_arg.h"
#include "src/app/option_parser.h"

namespace {

using option::Descriptor;
using option::Option;

enum { UNK, HELP, OUT, VERBOSE, NUM };

const Descriptor table[] = {
    {UNK, 0, "", "", option::Arg::None, "Usage: tool [options]\n"},
    {HELP, 0, "h", "help", option::Arg::None, "  -h, --help \tHelp."},
    {OUT, 0, "o", "out", MyArg::NonEmpty, "  -o, --out \tOutput."},
    {VERBOSE, 0, "v", "verbose", option::Arg::None, "  -v, --verbose \tMore words."},
    {NUM, 0, "n", "num", MyArg::Integer, "  -n, --num \tA number."},
    {0, 0, nullptr, nullptr, nullptr, nullptr},
};

// What the parser made of `args`: every occurrence as typed, with "=value" when it has one, index
// by index, then the non-options behind "|". Both passes must stay quiet on these arguments.
std::string parsed(std::vector<const char*> args) {
  const int n = static_cast<int>(args.size());
  testing::internal::CaptureStderr();
  option::Stats stats(false, table, n, args.data());
  std::vector<Option> options(stats.options_max), buffer(stats.buffer_max);
  option::Parser parser(false, table, n, args.data(), options.data(), buffer.data(), static_cast<int>(stats.buffer_max));
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  std::string text = parser.error ? "error " : "";
  for (int index = UNK; index <= NUM; ++index)
    for (const Option* o = options[index] ? &options[index] : nullptr; o; o = o->next)
      text.append(o->name, o->namelen).append(o->arg ? "=" : "").append(o->arg ? o->arg : "").append(" ");
  text += "|";
  for (const char* arg : parser.non_options) text.append(" ").append(arg);
  return text;
}

// Ways of writing options that the command-line end-to-end tests do not reach.
TEST(OptionParser, ShortGroupsValueFormsUnknownOptionsAndTheEndOfParsing) {
  const std::pair<std::vector<const char*>, std::string> cases[] = {
      {{"-hv", "-v"}, "h v v |"},
      {{"-ofile"}, "o=file |"},
      {{"-vofile", "-ov"}, "o=file o=v v |"},  // an option with a value ends its group
      {{"-o", "--", "-v"}, "o=-- v |"},        // a separate value is taken whatever it looks like
      {{"--out=a=b", "--num", "7", "--help"}, "--help --out=a=b --num=7 |"},
      {{"--verbose", "x", "--help"}, "--verbose | x --help"},  // the first non-option ends parsing
      // No abbreviations; a lone dash is a non-option.
      {{"--bogus", "-xh", "--verb", "-", "-v"}, "--bogus x --verb h | - -v"},
  };
  for (const auto& [args, expected] : cases) EXPECT_EQ(parsed(args), expected) << args[0];
}

}  // namespace
