// The tools' command line: options, words and files, the main around each tool, and the quoting of
// the commands they print.

#include <gtest/gtest.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"
#include "tools/cli/arguments.h"
#include "tools/cli/shell_quote.h"
#include "tools/cli/tool_main.h"

namespace {

// The options of a small tool: what they took, in order, as "NAME=VALUE " pairs.
struct Taken {
  std::string text;
  std::vector<cli::Option> options() {
    const auto note = [this](const cli::OptionValue& v) { text += v.option + "=" + v.text + " "; };
    const auto count = [this](const cli::OptionValue& v) { text += std::to_string(v.number(1, 9, "1 to 9")) + " "; };
    return {{"--out", "-o", note}, {"--count", "", count}, {"--all", "", note, true}};
  }
};

// run_tool on a body that parses with those options, throws `failure` when given, and prints what
// it took; the printed streams and the status as one text.
std::string tool(std::vector<std::string> args, const std::string& failure = "") {
  args.insert(args.begin(), "tool");
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const int status = cli::run_tool("tool", "usage\n", static_cast<int>(argv.size()), argv.data(), [&](const auto& a) {
    Taken taken;
    const cli::CommandLine line = cli::parse_command_line(a, taken.options(), true);
    if (!failure.empty()) throw std::runtime_error(failure);
    std::cout << taken.text << "| ";
    for (const std::string& w : line.words) std::cout << w << " ";
    std::cout << "| " << (line.dashes ? "-- " : "");
    for (const std::string& f : line.files) std::cout << f << " ";
  });
  const std::string out = testing::internal::GetCapturedStdout(), err = testing::internal::GetCapturedStderr();
  return out + "[" + err + "] " + std::to_string(status);
}

}  // namespace

TEST(ToolCommandLine, OptionsWordsFilesHelpAndFailures) {
  EXPECT_EQ(tool({"a", "--out", "x", "-o", "-y", "--out=", "--count=3", "b", "--", "--count", "-h"}),
            "--out=x -o=-y --out= 3 | a b | -- --count -h [] 0");
  EXPECT_EQ(tool({"--count", "0", "--help"}), "usage\n[] 0");  // help wins, before the options are read
  EXPECT_EQ(tool({"-o", "x", "--version"}), "tool " + std::string(QUILLARA_VERSION) + "\n[] 0");
  EXPECT_EQ(tool({"--", "--help"}), "| | -- --help [] 0");
  const std::string hint = " (see tool --help)\n] 1";
  EXPECT_EQ(tool({"--count", "10"}), "[tool: --count needs 1 to 9, got '10'" + hint);
  EXPECT_EQ(tool({"--count=x"}), "[tool: --count needs 1 to 9, got 'x'" + hint);
  EXPECT_EQ(tool({"-x"}), "[tool: unknown option '-x'" + hint);
  EXPECT_EQ(tool({"--bogus=1"}), "[tool: unknown option '--bogus=1'" + hint);
  EXPECT_EQ(tool({"a", "--out"}), "[tool: option --out needs a value" + hint);
  // A flag takes no value: the next argument stays a word.
  EXPECT_EQ(tool({"--all", "a"}), "--all= | a | [] 0");
  EXPECT_EQ(tool({"--all=1"}), "[tool: option --all takes no value" + hint);
  EXPECT_EQ(tool({}, "f: cannot be read"), "[tool: f: cannot be read\n] 1");
}

// Pasted into a shell, a quoted word is that word, and runs nothing.
TEST(ShellQuote, PastedWordsStayWhatTheyAre) {
  const std::string dir = io_test::fresh_scratch_dir();
  EXPECT_EQ(shell_quote("out/d_1.5,x=y+z@%:"), "out/d_1.5,x=y+z@%:");
  EXPECT_EQ(shell_quote(""), "''");
  EXPECT_EQ(shell_quote("it's"), "'it'\\''s'");
  for (const std::string word :
       {"o/d$(touch X)", "a b", "*", "~", "`touch X`", "x;touch X", "'", "a\nb", "$HOME", "-n"}) {
    const e2e::Result r = e2e::run("/bin/sh", dir, {"-c", "printf '%s|' " + shell_quote(word)});
    EXPECT_EQ(r.out, word + "|") << word;
  }
  EXPECT_TRUE(std::filesystem::is_empty(dir));
}

// Every tool: --help prints its usage with exit status 0, --version its name and version.
TEST(ToolPrograms, HelpAndVersion) {
  for (const char* program : {QUILLARA_DEPTH_BIN, QUILLARA_IMPORT_BIN, QUILLARA_SCENE_BIN, QUILLARA_EVALUATE_BIN}) {
    const std::string name = std::filesystem::path(program).filename().string();
    const e2e::Result help = e2e::run(program, io_test::scratch_dir(), {"--help"});
    EXPECT_EQ(help.status, 0) << name;
    EXPECT_EQ(help.out.rfind("Usage: " + name + " ", 0), 0u) << help.out;
    EXPECT_EQ(e2e::run(program, io_test::scratch_dir(), {"--version"}),
              (e2e::Result{name + " " + QUILLARA_VERSION + "\n", "", 0}));
  }
}
