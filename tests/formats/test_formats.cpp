// The files the programs share: numbers in text, view files and depth PNGs.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "formats/depth_png.h"
#include "formats/number_text.h"
#include "formats/text_file.h"
#include "formats/view_file.h"
#include "tests/support/io_test_support.h"

using io_test::expect_runtime_error;
using io_test::scratch_path;

namespace {

template <typename T>
NumberText read_as(const char* text) {
  T value;
  return read_number(text, value);
}

}  // namespace

// One rule for every number the programs read: whole decimal texts, blanks in front allowed; a
// number that does not fit is told apart from a text that is no number.
TEST(NumberText, WholeDecimalNumbersOfTheTypesRange) {
  constexpr NumberText ok = NumberText::ok, bad = NumberText::not_a_number, range = NumberText::out_of_range;
  for (const char* text : {"2", "-1.5", "+.5", " 7", "1e3", "3e38", "1e-50"})
    EXPECT_EQ(read_as<double>(text), ok) << text;
  for (const char* text : {"", " ", "x", "2x", "2 ", "1,5", ".", "0x10", "1e", "--1"})
    EXPECT_EQ(read_as<double>(text), bad) << text;
  for (const char* text : {"inf", "-infinity", "nan", "1e400"}) EXPECT_EQ(read_as<double>(text), range) << text;
  EXPECT_EQ(read_as<float>("1e39"), range);
  EXPECT_EQ(read_as<int>("2147483647"), ok);
  EXPECT_EQ(read_as<int>("2147483648"), range);
  EXPECT_EQ(read_as<int>("1.0"), bad);
  EXPECT_EQ(read_as<uint32_t>("-1"), range);  // not wrapped round to the largest value
  EXPECT_EQ(read_as<uint64_t>("18446744073709551615"), ok);
  float f = 0;
  ASSERT_TRUE(parse_number("0.1", f));
  EXPECT_EQ(f, 0.1f);  // rounded once, to float
}

// Written views read back as the same floats, -0 as 0; what a wrong file gets wrong is named.
TEST(ViewFileFormat, WrittenViewsReadBackAndWrongOnesAreNamed) {
  const ViewFile view{{501.25, -0.0, 319.5, 0, 499.5, 239.25, 0, 0, 1},
                      {0.36, 0.48, -0.8, -0.8, 0.6, 0, 0.48, 0.64, 0.6},
                      {0.1f, -0.2f, 3.3f},
                      640,
                      480,
                      "images/a.png",
                      "depths/a.png"};
  const std::string file = scratch_path("view.txt");
  write_view_file(file, view);
  EXPECT_EQ(io_test::read_bytes(file),
            "501.25 0 319.5\n0 499.5 239.25\n0 0 1\n0.36 0.48 -0.8\n-0.8 0.6 0\n0.48 0.64 0.6\n"
            "0.100000001 -0.200000003 3.29999995\n640 480\nimages/a.png\ndepths/a.png\n");
  const ViewFile back = read_view_file(file);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(back.R[i], static_cast<float>(view.R[i])) << i;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(back.t[i], view.t[i]) << i;
  EXPECT_EQ(back.depth_path, "depths/a.png");

  const std::string missing = scratch_path("missing.txt");
  expect_runtime_error([&] { read_view_file(missing); },
                       "view file \"" + missing + "\": cannot be opened: No such file or directory");
  const std::string K = "500 0 1.5 0 510 0.75 0 0 1  ", R = "0 -1 0 1 0 0 0 0 1  ", t = "1 2 3  ";
  ViewFile v;
  const std::pair<std::string, std::string> cases[] = {
      {K + R + t + "4 3 a", "has 24 tokens, expected 25"},
      {"500 0 1.5 0 510 0.75 0 0 nan  " + R + t + "4 3 a b", "token 9 (K) is \"nan\", not a finite number"},
      {K + R + "1 2 1e39  4 3 a b", "token 21 (t) is \"1e39\", not a finite number"},
      {K + R + t + "4.0 3 a b", "token 22 (width) is \"4.0\", not a whole number of at least 1"},
      {K + R + t + "4 0 a b", "token 23 (height) is \"0\", not a whole number of at least 1"},
      {"500 0 1.5 0 -510 0.75 0 0 1  " + R + t + "4 3 a b",
       "the focal lengths fx and fy (tokens 1 and 5) must be positive, got 500 and -510"},
      {K + "1 0 0 0 1 0 0 0 -1  " + t + "4 3 a b",
       "the rotation (tokens 10 to 18) is a reflection: its determinant is -1"},
      {K + "1 0 0 0 1 0 0 0 1.01  " + t + "4 3 a b",
       "the rotation (tokens 10 to 18) is not orthonormal: R^T R differs from the identity by up to 0.0201"},
      {K + "0.7071 -0.7071 0 0.7071 0.7071 0 0 0 1  " + t + "4 3 a b", ""},  // four decimals are enough
  };
  for (const auto& [text, problem] : cases) {
    const std::string found = parse_view_file(text, v);
    EXPECT_TRUE(found.starts_with(problem) && problem.empty() == found.empty()) << text << ": " << found;
  }
}

// Thousandths, rounded; a depth the 16 bits cannot hold leaves the pixel empty rather than
// clamped to a wrong depth. The values come back from the file as written.
TEST(DepthPng, ThousandthsWithEmptyPixelsForDepthsOutOfReach) {
  const std::pair<double, int> cases[] = {{1.2346, 1235}, {0.0005, 1}, {0.0004, 0}, {65.5354, 65535}, {65.5356, 0},
                                          {1e9, 0},       {0.0, 0},    {-2.0, 0},    {NAN, 0}};
  for (const auto& [depth, stored] : cases) EXPECT_EQ(depth_to_thousandths(depth), stored) << depth;

  const std::string png = scratch_path("depth.png");
  write_depth_png(png, 3, 2, {0x1234, 65535, 0, 1, 2, 3});
  const CMatrix<unsigned short> m = read_depth_png(png);
  ASSERT_EQ(m.xSize, 3);
  ASSERT_EQ(m.ySize, 2);
  EXPECT_EQ(std::vector<unsigned short>(m.data, m.data + 6), (std::vector<unsigned short>{0x1234, 65535, 0, 1, 2, 3}));
  EXPECT_THROW(write_depth_png(png, 3, 3, {1, 2}), std::runtime_error);
  expect_runtime_error([] { write_text("/nonexistent/dir/file.txt", "x"); },
                       "/nonexistent/dir/file.txt: cannot be written: No such file or directory");
}
