// The closing summary's advice when a run ends with a small model.

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "src/app/run_summary.h"

namespace {

// The advice that follows the summary's model line, for a run that kept `points` of 1000 pixels.
std::string advice_of(std::size_t points, float visible_support, float min_support = 3.0f) {
  RunSummary r;
  r.points = points;
  r.input_pixels = 1000;
  r.min_support_sp = std::min(2.0f, min_support);
  r.min_support = min_support;
  r.visible_support = visible_support;
  r.visible_support_floor = 0.5f;
  const std::string text = format_summary(r);
  return text.substr(text.find('\n', text.find("  model: ")) + 1);
}

}  // namespace

// Below a quarter of the input, the fixed levels point to the visible share, and the visible
// share points to the input, a lower share and the floor.
TEST(RunSummary, SmallModelsGetAdviceForTheirRule) {
  EXPECT_NE(advice_of(249, 0.0f).find("with few views try --visible-support 0.3"), std::string::npos);
  EXPECT_EQ(advice_of(250, 0.0f), "");
  // Lower fixed levels are suggested only while they are above 1.
  EXPECT_NE(advice_of(249, 0.0f).find("or lower levels, e.g. --min-support-sp 1 --min-support 1."), std::string::npos);
  EXPECT_EQ(advice_of(249, 0.0f, 1.0f).find("lower levels"), std::string::npos);
  EXPECT_EQ(advice_of(100, 0.3f),
            "Few points were kept: few points reach the share of what the views that see them could confirm "
            "(--visible-support 0.3, --visible-floor 0.5); check --depth-avg and the poses of the views, or try a "
            "lower share, or --visible-floor 0 to keep what no other view sees.\n");
  EXPECT_EQ(advice_of(0, 0.3f).find("The model is empty: few points reach the share"), 0u);
}
