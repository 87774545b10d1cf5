#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "src/app/my_arg.h"
#include "src/app/option_parser.h"
#include "src/app/option_usage.h"

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

struct Parsed {
  std::vector<Option> options, buffer;
  option::Parser parser;
  std::string errors;  // what the store pass wrote to standard error
};

Parsed parse(std::vector<const char*> args) {
  Parsed p;
  const int n = static_cast<int>(args.size());
  testing::internal::CaptureStderr();
  option::Stats stats(false, table, n, args.data());
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the count pass must stay quiet";
  p.options.resize(stats.options_max);
  p.buffer.resize(stats.buffer_max);
  testing::internal::CaptureStderr();
  p.parser = option::Parser(false, table, n, args.data(), p.options.data(), p.buffer.data(),
                            static_cast<int>(stats.buffer_max));
  p.errors = testing::internal::GetCapturedStderr();
  return p;
}

std::string arg_of(const Option& o) { return o.arg ? o.arg : "<null>"; }

TEST(OptionParser, GroupedShortOptions) {
  Parsed p = parse({"-hv", "-v"});
  ASSERT_FALSE(p.parser.error);
  EXPECT_TRUE(p.options[HELP]);
  EXPECT_EQ(p.options[VERBOSE].count(), 2);
  EXPECT_FALSE(p.options[OUT]);
  EXPECT_EQ(p.parser.options_count, 3);
  EXPECT_EQ(std::string(p.options[HELP].name, p.options[HELP].namelen), "h");
}

TEST(OptionParser, ShortOptionValuesAttachedOrSeparate) {
  EXPECT_EQ(arg_of(parse({"-ofile"}).options[OUT]), "file");
  EXPECT_EQ(arg_of(parse({"-o", "file"}).options[OUT]), "file");

  // An option with a value ends the group: the rest of it is the value.
  Parsed p = parse({"-vofile", "-ov"});
  ASSERT_FALSE(p.parser.error);
  EXPECT_EQ(arg_of(p.options[OUT]), "file");
  EXPECT_EQ(arg_of(p.options[OUT].next[0]), "v");
  EXPECT_EQ(p.options[VERBOSE].count(), 1);

  // The value of a separate form is taken whatever it looks like.
  Parsed dash = parse({"-o", "--", "-v"});
  EXPECT_EQ(arg_of(dash.options[OUT]), "--");
  EXPECT_TRUE(dash.options[VERBOSE]);
  EXPECT_EQ(arg_of(dash.options[HELP]), "<null>");
}

TEST(OptionParser, LongOptionValueForms) {
  Parsed p = parse({"--out=a=b", "--num", "7", "--help"});
  ASSERT_FALSE(p.parser.error);
  EXPECT_EQ(arg_of(p.options[OUT]), "a=b");
  EXPECT_EQ(std::string(p.options[OUT].name, p.options[OUT].namelen), "--out");
  EXPECT_EQ(arg_of(p.options[NUM]), "7");
  EXPECT_TRUE(p.options[HELP]);
  EXPECT_TRUE(p.parser.non_options.empty());

  // An option without an argument leaves the next element alone; it ends parsing here.
  Parsed q = parse({"--verbose", "x", "--help"});
  EXPECT_EQ(arg_of(q.options[VERBOSE]), "<null>");
  EXPECT_FALSE(q.options[HELP]);
  ASSERT_EQ(q.parser.non_options.size(), 2u);
  EXPECT_STREQ(q.parser.non_options[0], "x");
}

TEST(OptionParser, UnknownOptionsNoAbbreviationsAndALoneDash) {
  Parsed p = parse({"--bogus", "-xh", "--verb", "-", "-v"});
  ASSERT_FALSE(p.parser.error);
  EXPECT_EQ(p.errors, "");
  EXPECT_EQ(p.options[UNK].count(), 3);
  EXPECT_EQ(std::string(p.options[UNK].name, p.options[UNK].namelen), "--bogus");
  EXPECT_EQ(p.options[UNK].desc, &table[0]);
  EXPECT_TRUE(p.options[HELP]);
  EXPECT_FALSE(p.options[VERBOSE]);  // not "--verb", and "-v" comes after the lone dash
  ASSERT_EQ(p.parser.non_options.size(), 2u);
  EXPECT_STREQ(p.parser.non_options[0], "-");
}

std::string usage_text(const Descriptor* rows, int width) {
  std::string text;
  option::PrintUsageImplementation::printUsage([&](std::string_view s) { text += s; }, rows, width, 50, 75);
  return text;
}

TEST(PrintUsage, LastColumnMovesToOwnLinesBelowTheMinimum) {
  // Width 40: the last column needs 20 characters beside the first, else it gets own lines of at
  // most 30 characters that end at the right margin.
  const Descriptor rows[] = {
      {1, 0, "", "", nullptr, "  -a, --a-rather-long-name \tShort help that has to wrap here."},
      {2, 0, "", "", nullptr, "  -b \tSecond."},
      {0, 0, nullptr, nullptr, nullptr, nullptr},
  };
  EXPECT_EQ(usage_text(rows, 40),
            "  -a, --a-rather-long-name\n"
            "          Short help that has to wrap\n"
            "          here.\n"
            "  -b\n"
            "          Second.\n");
}

}  // namespace
