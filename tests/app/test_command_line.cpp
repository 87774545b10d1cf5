#include <gtest/gtest.h>

#include <boost/filesystem.hpp>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "src/app/command_line.h"
#include "src/app/fatal_error.h"
#include "src/app/model_files.h"
#include "src/app/my_arg.h"
#include "src/app/option_parser.h"
#include "src/core/settings.h"

namespace parser_test {

using option::Descriptor;
using option::Option;

// A small table of its own, in a namespace apart from the program's option indices.
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
  option::Stats stats(table, n, args.data());
  std::vector<Option> options(stats.options_max), buffer(stats.buffer_max);
  option::Parser parser(table, n, args.data(), options.data(), buffer.data(), static_cast<int>(stats.buffer_max));
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

}  // namespace parser_test

namespace {

using namespace option_index;

// Runs a check with messages on for option "--x" and returns what it printed, "ok" when it accepts.
std::string verdict(option::CheckArg check, const char* arg) {
  option::Option o;
  o.desc = &usage[DEPTH_AVG];
  o.name = "--x";
  o.namelen = 3;
  o.arg = arg;
  testing::internal::CaptureStderr();
  const option::ArgStatus status = check(o, true);
  const std::string printed = testing::internal::GetCapturedStderr();
  return status == option::ARG_OK ? "ok" + printed : printed;
}

// Which texts each check accepts: whole decimal numbers, ranges judged on the float the settings
// will hold; a number out of range (inf, 1e400) is still a number. The real options' messages are
// pinned end to end.
TEST(MyArg, NonEmptyTextAndNumbersReadCompletely) {
  const std::string numeric = "Option '--x' requires a numeric argument\n";
  struct Rule {
    option::CheckArg check;
    std::vector<const char*> accepted, refused;
    std::string message;
  };
  const Rule rules[] = {
      {MyArg::NonEmpty, {" "}, {}, ""},
      {MyArg::Double, {"2", "-1", "inf", "1e400"}, {"x", "0x10"}, numeric},
      {MyArg::Integer, {"-3", "99999999999999999999"}, {"1.5", "1e3"}, numeric},
      {MyArg::PositiveDouble, {"3e38"}, {"1e-50", "1e39", "inf", "nan"},
       "Option '--x' requires a positive finite argument\n"},
      {MyArg::NonNegativeDouble, {"-0"}, {"nan", "-1e-3"}, "Option '--x' requires a finite argument of at least 0\n"},
      {MyArg::PositiveInteger, {"2147483647"}, {"1.5"}, numeric},
      {MyArg::Share, {"1", "1e-30"}, {"0", "1.0001", "-0.5", "nan", "1e-50"},
       "Option '--x' requires an argument above 0 and at most 1\n"},
      {MyArg::PlyColors, {"standard"}, {"Standard"}, "Option '--x' requires diffuse or standard\n"},
  };
  for (const Rule& r : rules) {
    for (const char* text : r.accepted) EXPECT_EQ(verdict(r.check, text), "ok") << text;
    for (const char* text : r.refused) EXPECT_EQ(verdict(r.check, text), r.message) << text;
    for (const char* empty : {"", static_cast<const char*>(nullptr)})
      EXPECT_EQ(verdict(r.check, empty), "Option '--x' requires a non-empty argument\n");
  }
}

// The success path, in process: the settings a later stage reads (the first --depth-avg wins), the
// output directory and the checked view files.
TEST(SetUpRun, StoresSettingsAndViewFiles) {
  const std::string dir = std::string(QUILLARA_TEST_TMP) + "/set_up_run";
  boost::filesystem::remove_all(dir);
  boost::filesystem::create_directories(dir);
  const std::string view_a = dir + "/view a", view_b = dir + "/-view_b";
  std::ofstream(view_a) << "x";
  std::ofstream(view_b) << "x";
  const std::string out = dir + "/out/nested";

  std::vector<std::string> args = {"quillara", "-o", out, "--depth-avg", "2.5", "--depth-avg=3", "--alpha-sp", "0.3",
                                   "--beta", "2", "--min-support", "0", "--superpixels", "77", "--bogus",
                                   "--visible-support", "0.25", "--", view_a, view_b};
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());

  const std::vector<std::string> view_files = parse_command_line(static_cast<int>(argv.size()), argv.data());
  EXPECT_EQ(view_files, (std::vector<std::string>{view_a, view_b}));
  EXPECT_EQ(output_directory, out);
  EXPECT_EQ(std::vector<float>({average_depth, alpha_sp, beta, min_support, support_rule.share}),
            std::vector<float>({2.5f, 0.3f, 2, 0, 0.25f}));
  EXPECT_EQ(superpixel_count, 77);
  EXPECT_FALSE(boost::filesystem::exists(out));  // a step of its own
  make_output_directory();
  EXPECT_TRUE(boost::filesystem::is_directory(out));
  check_view_files(view_files);
  EXPECT_EQ(n_keyframes, 2);
  support_rule = SupportRule();
}

}  // namespace

void throw_in_parallel_region() {
#pragma omp parallel for
  for (int i = 0; i < 4; ++i)
    if (i == 1) throw std::runtime_error("cell_start is invalid!  key 7   value 4294967295\n");
}

// An exception that ends the process, even from inside a parallel region, is named first.
TEST(InternalErrors, TerminateSaysWhatFailed) {
  EXPECT_DEATH(
      {
        report_internal_errors();
        throw_in_parallel_region();
      },
      "quillara: internal error: cell_start is invalid!  key 7   value 4294967295");
}
