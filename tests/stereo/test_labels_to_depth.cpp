// The operators around the matching: labels to depth and back, the clamped median, and the axis
// rotation into the matching's working layout.

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "src/stereo/labels_to_depth.h"
#include "tests/stereo/stereo_test_support.h"

namespace {

class LabelsToDepthTest : public StereoTest {
 protected:
  std::vector<float> to_depth(std::vector<float> const& labels, int L, float first, float last) {
    ketra::Array<float, 2> a = array<float>(static_cast<unsigned int>(labels.size()));
    upload(a, labels);
    EXPECT_EQ(convert_labels_to_depth(a, L, first, last), device::Success);
    return download(a);
  }
};

// Label 0 is the first depth and label L - 1 the last, near to far and far to near; inverting the
// depth of any label, whole or fractional, on the inverse-depth scale gives the label back. Equal
// ends give the first depth everywhere.
TEST_F(LabelsToDepthTest, EndsAndInverseOfTheLabelScale) {
  constexpr int L = 128;
  for (auto [first, last] : {std::pair{0.5f, 20.0f}, std::pair{9.0f, 1.5f}}) {
    const std::vector<float> labels{0.0f, 127.0f, 1.0f, 63.25f, 126.5f};
    const std::vector<float> d = to_depth(labels, L, first, last);
    EXPECT_FLOAT_EQ(d[0], first);
    EXPECT_NEAR(d[1], last, 1e-5f * last);
    const float a = 1.0f / first, step = (1.0f / last - a) / (L - 1);
    for (std::size_t i = 0; i < labels.size(); ++i) EXPECT_NEAR((1.0f / d[i] - a) / step, labels[i], 2e-3f) << i;
  }
  EXPECT_EQ(to_depth({0.0f, 5.0f, 127.0f}, L, 3.0f, 3.0f), (std::vector<float>{3.0f, 3.0f, 3.0f}));
}

// Coordinates clamp at the border: the corner pixel enters its own median four times, an edge
// pixel twice, so a high corner wins its own median when one more neighbour agrees with it.
TEST_F(LabelsToDepthTest, MedianClampsAtTheBorder) {
  constexpr int W = 4, H = 3;
  // 100 at the corner (0, 0) and its right neighbour; (0, 1) at 6, the rest counting up from 1.
  const std::vector<float> values{100, 100, 2, 3,  //
                                  6, 7, 8, 9,      //
                                  10, 11, 12, 13};
  ketra::Array<float, 2> in = array<float>(W, H), out = array<float>(W, H);
  upload(in, values);
  median3x3(out, in);
  const std::vector<float> m = download(out);
  EXPECT_EQ(m[0], 100.0f);         // 6, 6, 7 and six times 100
  EXPECT_EQ(m[1], 8.0f);           // 2, 2, 6, 7, 8 and four times 100
  EXPECT_EQ(m[W * H - 1], 12.0f);  // 8, 9, 9, 12, 12 and four times 13
}

// A volume whose extents are no multiples of the tile rotates by the plain rule, element by
// element. Wrong extents are refused before any write; the built-in self-test passes.
TEST_F(LabelsToDepthTest, ShiftDimsFollowsThePlainRule) {
  constexpr unsigned int X = 37, Y = 5, Z = 45;
  std::vector<float> values(X * Y * Z);
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i);
  ketra::Array<float, 3> input = array<float, 3>(X, Y, Z), result = array<float, 3>(Z, X, Y);
  upload(input, values);
  shift_dims(result, input);
  const std::vector<float> got = download(result);
  for (unsigned int y = 0; y < Y; ++y)
    for (unsigned int x = 0; x < X; ++x)
      for (unsigned int z = 0; z < Z; ++z) ASSERT_EQ(got[(y * X + x) * Z + z], values[(z * Y + y) * X + x]);

  ketra::Array<float, 3> wrong = array<float, 3>(Z, Y, X);
  ketra::set(wrong, -1.0f);
  EXPECT_EQ(message_of([&] { shift_dims(wrong, input); }), "shift_dims: dimensions wrong!");
  EXPECT_EQ(download(wrong), std::vector<float>(values.size(), -1.0f));
  EXPECT_NO_THROW(test_shift_dims());
}

}  // namespace
