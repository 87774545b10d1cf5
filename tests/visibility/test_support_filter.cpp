#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "src/visibility/support_filter.h"
#include "tests/support/check_verdict.h"

// A point passes the visible share by what its support exceeds the larger of share times what the
// views could give and the floor.
TEST(SupportFilter, VisibleMarginAgainstShareAndFloor) {
  SupportRule rule;
  rule.share = 0.5f;
  rule.floor = 1.0f;
  EXPECT_EQ(visible_support_margin({3.0f, 3.0f, 0.5f}, {4.0f, 1.0f, 0.0f}, rule),
            (std::vector<float>{1.0f, 2.0f, -0.5f}));
}

TEST(SupportFilter, OptionsCheckNamesWhatAFilterCannotWorkWith) {
  SupportFilterOptions fine;
  fine.radius = 0.01f;
  const auto with = [&](auto change) { return check_verdict(fine, change); };
  EXPECT_EQ(with([](SupportFilterOptions& o) { o.rule.share = 1.0f; }), "accepted");
  EXPECT_EQ(with([](SupportFilterOptions& o) { o.radius = 0.0f; }),
            "SupportFilterOptions: radius must be positive and finite, got 0");
  EXPECT_EQ(with([](SupportFilterOptions& o) { o.rule.share = 1.5f; }),
            "SupportFilterOptions: the share must be between 0 and 1, got 1.5");
  EXPECT_EQ(with([](SupportFilterOptions& o) { o.rule.floor = NAN; }),
            "SupportFilterOptions: the floor must be finite and not negative, got nan");
}
