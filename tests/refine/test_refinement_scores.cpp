// Which offset a pixel takes from its NCC sums, and which scores the threshold trusts.

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <vector>

#include "src/refine/refinement_scores.h"

namespace {

float score_of(float m) { return static_cast<float>(1.0 - std::acos(m) / std::numbers::pi); }

CMatrix<float> row(std::vector<float> const& values) {
  CMatrix<float> m(static_cast<int>(values.size()), 1);
  std::copy(values.begin(), values.end(), m.data);
  return m;
}

}  // namespace

// Offsets with s = 0.1: 0, 0.2, -0.2, 0.4, 0.4, 0.8, -0.8; every pixel starts at depth 1.
TEST(ChooseOffsets, BestScoreWinsAndTheLastOffsetIsTheFallback) {
  CTensor<float2> acc(6, 1, 7);
  auto set = [&](int x, int k, float sum, float count) { acc(x, 0, k) = make_float2(sum, count); };
  set(0, 3, 1.5f, 3), set(0, 4, 2.7f, 3);                    // the fifth entry wins: +4s again, not -4s
  set(1, 1, 2.4f, 3), set(1, 2, 3.2f, 4), set(1, 5, 0.3f, 3);  // a tie keeps the earlier offset
  set(2, 0, 3.0f, 2);                                        // two neighbours are not enough
  set(3, 0, -3.0f, 3), set(3, 1, NAN, 5);  // score 0 does not beat the start, NaN never wins
  set(4, 0, 0.0f, 3);                      // mean 0 scores one half
  set(5, 6, 3.0f, 3);                      // the last offset wins on its score too
  CMatrix<float> depth(6, 1, 1.0f), scores(6, 1);
  choose_offsets(depth, scores, acc, refinement_offsets(0.8f));
  const float expected_depth[6] = {1.4f, 1.2f, 0.2f, 0.2f, 1.0f, 0.2f};
  const float expected_score[6] = {score_of(0.9f), score_of(0.8f), 0.0f, 0.0f, 0.5f, 1.0f};
  for (int x = 0; x < 6; ++x) {
    EXPECT_FLOAT_EQ(depth(x, 0), expected_depth[x]) << x;
    EXPECT_FLOAT_EQ(scores(x, 0), expected_score[x]) << x;
  }
}

// Only scores above 0.67 make the mean and spread; the threshold lies two deviations below the
// mean but never below 0.67, and a score equal to it passes.
TEST(ScoreThreshold, TwoDeviationsBelowTheMeanWithAFloor) {
  EXPECT_NEAR(score_threshold(row({0.9f, 0.9f, 0.9f, 0.8f, 0.5f, 0.0f, 0.6699999f})).threshold,
              0.875f - 2.0f * std::sqrt(0.001875f), 1e-6f);  // mean 0.875 of the first four
  EXPECT_EQ(score_threshold(row({0.68f, 0.99f, 0.68f, 0.99f})).threshold, 0.67f);
  const ScoreThreshold none = score_threshold(row({0.6f, 0.0f}));
  EXPECT_TRUE(std::isnan(none.mean) && std::isnan(none.sigma));
  EXPECT_EQ(none.threshold, 0.67f);

  CMatrix<float> depth = row({2.0f, 3.0f, 4.0f});
  mask_untrusted(depth, row({0.67f, 0.6699999f, 0.9f}), 0.67f);
  EXPECT_EQ(depth(0, 0), 2.0f);
  EXPECT_EQ(depth(1, 0), 0.0f);
  EXPECT_EQ(depth(2, 0), 4.0f);
}
