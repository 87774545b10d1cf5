// The closing summary's advice: what it suggests when a run ends with a small or empty model.

#include <gtest/gtest.h>

#include <string>

#include "src/app/run_summary.h"

namespace {

RunSummary run(std::size_t points, float visible_support = 0.0f) {
  RunSummary r;
  r.superpixel_points = 10;
  r.points = points;
  r.input_pixels = 1000;
  r.seconds = 2.04;
  r.output_directory = "out";
  r.min_support_sp = 2.0f;
  r.min_support = 3.0f;
  r.visible_support = visible_support;
  r.visible_support_floor = 0.5f;
  return r;
}

std::string advice_of(const RunSummary& r) {
  const std::string text = format_summary(r);
  const std::size_t model_line = text.find("  model: ");
  return text.substr(text.find('\n', model_line) + 1);
}

}  // namespace

TEST(RunSummary, SmallModelsOfTheFixedLevelsPointToTheVisibleShare) {
  const std::string levels = "too few views confirm each surface at the support levels in force (--min-support-sp 2, "
                             "--min-support 3); with few views try --visible-support 0.3, which asks each point only "
                             "for a share of what the views that see it could confirm, or lower levels, e.g. "
                             "--min-support-sp 1 --min-support 1.\n";
  EXPECT_EQ(format_summary(run(249)),
            "Finished in 2.0 s.\n"
            "  superpixel model: 10 points in out/model_superpixel.ply\n"
            "  model:            249 points in out/model.ply, 24.9 % of the 1000 input depth pixels\n"
            "Few points were kept: " + levels);
  EXPECT_EQ(advice_of(run(0)), "The model is empty: " + levels);
  EXPECT_EQ(advice_of(run(250)), "");  // a quarter of the input is no longer small
}

TEST(RunSummary, SmallModelsOfTheVisibleSharePointToTheInputAndTheFloor) {
  EXPECT_EQ(advice_of(run(100, 0.3f)),
            "Few points were kept: few points reach the share of what the views that see them could confirm "
            "(--visible-support 0.3, --visible-floor 0.5); check --depth-avg and the poses of the views, or try a "
            "lower share, or --visible-floor 0 to keep what no other view sees.\n");
  EXPECT_EQ(advice_of(run(700, 0.3f)), "");

  RunSummary none = run(100);
  none.min_support_sp = none.min_support = 0.0f;
  EXPECT_EQ(advice_of(none),
            "Few points were kept: no support was required, so check --depth-avg against the depths of the input.\n");
  none.input_pixels = 0;
  EXPECT_EQ(advice_of(none), "The depth maps hold no depth: every pixel is 0.\n");
}
