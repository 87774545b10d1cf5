// The host side of refinement: which offset a pixel takes from its NCC sums, and which scores the
// threshold trusts.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "src/refine/refinement_scores.h"

namespace {

constexpr float nan_value = std::numeric_limits<float>::quiet_NaN();

float score_of(float m) { return static_cast<float>(1.0 - std::acos(m) / std::numbers::pi); }

CMatrix<float> row(std::vector<float> const& values) {
  CMatrix<float> m(static_cast<int>(values.size()), 1);
  for (std::size_t i = 0; i < values.size(); ++i) m.data[i] = values[i];
  return m;
}

}  // namespace

// Offsets with s = 0.1: 0, 0.2, -0.2, 0.4, 0.4, 0.8, -0.8. Each pixel starts at depth 1.
TEST(ChooseOffsets, BestScoreWinsAndTheLastOffsetIsTheFallback) {
  const std::vector<float> offsets = refinement_offsets(0.8f);
  ASSERT_EQ(offsets.size(), 7u);
  CTensor<float2> acc(6, 1, 7);
  auto set = [&](int x, int k, float sum, float count) { acc(x, 0, k) = make_float2(sum, count); };
  set(0, 3, 1.5f, 3);  // the fifth entry scores best: it is +4s again, not -4s
  set(0, 4, 2.7f, 3);
  set(1, 1, 2.4f, 3);  // a tie keeps the earlier offset
  set(1, 2, 3.2f, 4);
  set(1, 5, 0.3f, 3);
  set(2, 0, 3.0f, 2);  // two neighbours are not enough
  set(3, 0, -3.0f, 3);  // mean -1 scores 0, which does not beat the start
  set(3, 1, nan_value, 5);  // a NaN score never wins
  set(4, 0, 0.0f, 3);  // mean 0 scores one half
  set(5, 6, 3.0f, 3);  // the last offset can win on its score too
  CMatrix<float> depth(6, 1, 1.0f), scores(6, 1);
  choose_offsets(depth, scores, acc, offsets);

  const float expected_depth[6] = {1.4f, 1.2f, 0.2f, 0.2f, 1.0f, 0.2f};
  const float expected_score[6] = {score_of(0.9f), score_of(0.8f), 0.0f, 0.0f, 0.5f, 1.0f};
  for (int x = 0; x < 6; ++x) {
    EXPECT_FLOAT_EQ(depth(x, 0), expected_depth[x]) << x;
    EXPECT_FLOAT_EQ(scores(x, 0), expected_score[x]) << x;
  }
}

TEST(AccumulateNcc, OnlyFiniteValuesCount) {
  CTensor<float2> acc(4, 1, 7);
  acc(0, 0, 2) = make_float2(0.5f, 1.0f);
  accumulate_ncc(acc, row({0.25f, nan_value, INFINITY, -1.0f}), 2);
  EXPECT_EQ(acc(0, 0, 2).x, 0.75f);
  EXPECT_EQ(acc(0, 0, 2).y, 2.0f);
  EXPECT_EQ(acc(1, 0, 2).y, 0.0f);
  EXPECT_EQ(acc(2, 0, 2).y, 0.0f);
  EXPECT_EQ(acc(3, 0, 2).x, -1.0f);
  EXPECT_EQ(acc(3, 0, 1).y, 0.0f);  // other planes stay as they were
}

// Only scores above 0.67 make the mean and spread; the threshold is two deviations below the
// mean but never below 0.67, and a score equal to it passes.
TEST(ScoreThreshold, TwoDeviationsBelowTheMeanWithAFloor) {
  const ScoreThreshold narrow = score_threshold(row({0.9f, 0.9f, 0.9f, 0.8f, 0.5f, 0.0f, 0.67f - 1e-7f}));
  EXPECT_NEAR(narrow.mean, 0.875f, 1e-6f);
  EXPECT_NEAR(narrow.sigma, std::sqrt(0.001875f), 1e-6f);
  EXPECT_NEAR(narrow.threshold, 0.875f - 2.0f * std::sqrt(0.001875f), 1e-6f);

  const ScoreThreshold wide = score_threshold(row({0.68f, 0.99f, 0.68f, 0.99f}));
  EXPECT_GT(wide.mean, 0.67f);
  EXPECT_EQ(wide.threshold, 0.67f);

  const ScoreThreshold none = score_threshold(row({0.6f, 0.0f}));
  EXPECT_TRUE(std::isnan(none.mean));
  EXPECT_TRUE(std::isnan(none.sigma));
  EXPECT_EQ(none.threshold, 0.67f);

  CMatrix<float> depth = row({2.0f, 3.0f, 4.0f});
  mask_untrusted(depth, row({0.67f, 0.6699999f, 0.9f}), 0.67f);
  EXPECT_EQ(depth(0, 0), 2.0f);
  EXPECT_EQ(depth(1, 0), 0.0f);
  EXPECT_EQ(depth(2, 0), 4.0f);
}
