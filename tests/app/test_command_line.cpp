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
#include "src/app/support_rule.h"
#include "src/core/settings.h"

namespace {

using namespace option_index;

option::Option with_arg(const char* name, const char* arg) {
  option::Option o;
  o.desc = &usage[DEPTH_AVG];
  o.name = name;
  o.namelen = static_cast<int>(std::string(name).size());
  o.arg = arg;
  return o;
}

// Runs a check with messages on and returns its verdict and what it printed.
std::pair<option::ArgStatus, std::string> run_check(option::CheckArg check, const char* arg) {
  testing::internal::CaptureStderr();
  option::ArgStatus status = check(with_arg("--x", arg), true);
  return {status, testing::internal::GetCapturedStderr()};
}

const std::string non_empty = "Option '--x' requires a non-empty argument\n";
const std::string numeric = "Option '--x' requires a numeric argument\n";

// Which texts each check accepts; the messages of the real options are pinned end to end.
TEST(MyArg, NonEmptyTextAndNumbersReadCompletely) {
  const std::pair<option::ArgStatus, std::string> ok{option::ARG_OK, ""};
  EXPECT_EQ(run_check(MyArg::NonEmpty, " "), ok);
  for (const char* text : {"2", "-1", "0", "1e3", "+.5", " 7", "inf"})
    EXPECT_EQ(run_check(MyArg::Double, text), ok) << text;
  for (const char* bad : {"x", "2x", "1,5", "2 ", "."})
    EXPECT_EQ(run_check(MyArg::Double, bad), std::make_pair(option::ARG_ILLEGAL, numeric)) << bad;

  for (const char* text : {"5000", "-3", "0", "99999999999"}) EXPECT_EQ(run_check(MyArg::Integer, text), ok) << text;
  for (const char* bad : {"1.5", "1e3", "abc", "-"})
    EXPECT_EQ(run_check(MyArg::Integer, bad), std::make_pair(option::ARG_ILLEGAL, numeric)) << bad;

  // The range checks judge the value the settings will hold (the end-to-end tests pin the rest):
  // a float, read by the stream, which takes no hexadecimal.
  EXPECT_EQ(run_check(MyArg::PositiveDouble, "3e38"), ok);
  for (const char* bad : {"1e-50", "0x10"}) EXPECT_EQ(run_check(MyArg::PositiveDouble, bad).first, option::ARG_ILLEGAL);
  EXPECT_EQ(run_check(MyArg::NonNegativeDouble, "-0"), ok);
  EXPECT_EQ(run_check(MyArg::PositiveInteger, "2147483647"), ok);
  EXPECT_EQ(run_check(MyArg::PositiveInteger, "1.5"), std::make_pair(option::ARG_ILLEGAL, numeric));
  EXPECT_EQ(run_check(MyArg::Share, "1"), ok);
  EXPECT_EQ(run_check(MyArg::Share, "1e-30"), ok);
  for (const char* bad : {"0", "1.0001", "-0.5", "nan", "1e-50"})
    EXPECT_EQ(run_check(MyArg::Share, bad),
              std::make_pair(option::ARG_ILLEGAL, std::string("Option '--x' requires an argument above 0 and at most 1\n")))
        << bad;
  EXPECT_EQ(run_check(MyArg::PlyColors, "standard"), ok);
  EXPECT_EQ(run_check(MyArg::PlyColors, "Standard"),
            std::make_pair(option::ARG_ILLEGAL, std::string("Option '--x' requires diffuse or standard\n")));

  for (option::CheckArg check :
       {MyArg::NonEmpty, MyArg::Double, MyArg::Integer, MyArg::PositiveDouble, MyArg::Share, MyArg::PlyColors}) {
    EXPECT_EQ(run_check(check, ""), std::make_pair(option::ARG_ILLEGAL, non_empty));
    EXPECT_EQ(run_check(check, nullptr), std::make_pair(option::ARG_ILLEGAL, non_empty));
  }
}

// The success path, in process: the settings a later stage reads.
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
                                   "--visible-support", "0.25", "--visible-floor", "0", "--ply-colors", "standard",
                                   "--", view_a, view_b};
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  std::vector<std::string> view_files = {"stale"};

  EXPECT_EQ(set_up_run(static_cast<int>(argv.size()), argv.data(), view_files), std::nullopt);
  EXPECT_EQ(view_files, (std::vector<std::string>{view_a, view_b}));
  EXPECT_TRUE(boost::filesystem::is_directory(out));
  EXPECT_EQ(output_directory, out);
  EXPECT_EQ(average_depth, 2.5f);  // the first occurrence wins
  EXPECT_EQ(alpha_sp, 0.3f);
  EXPECT_EQ(beta, 2.0f);
  EXPECT_EQ(min_support, 0.0f);
  EXPECT_EQ(superpixel_count, 77);
  EXPECT_EQ(support_rule.share, 0.25f);
  EXPECT_EQ(support_rule.floor, 0.0f);
  EXPECT_EQ(model_color_names, PlyColorNames::standard);
  EXPECT_EQ(n_keyframes, 2);
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
