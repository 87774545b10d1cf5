#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "src/app/command_line.h"
#include "src/app/run_error.h"
#include "src/app/scene_input.h"
#include "src/app/stage_options.h"
#include "src/core/settings.h"

namespace {

Camera first_view(float fx, int width, int height) {
  Camera c;
  c.K[0] = fx;
  c.width = width;
  c.height = height;
  return c;
}

std::string refusal(const Camera& camera) {
  try {
    make_stage_options(camera);
  } catch (const RunError& e) {
    return e.what();
  }
  return "accepted";
}

}  // namespace

// Every radius is a number of pixels at the average depth, multiplied before it is divided, as the
// stages have always formed them.
TEST(StageOptions, RadiiOfEachStage) {
  average_depth = 2.75f;
  superpixel_count = 5000;
  const StageOptions stages = make_stage_options(first_view(500.0f, 640, 480));
  const float s = superpixel_radius(640, 480, 5000);
  const RunRadii& r = stages.radii;
  EXPECT_EQ(std::vector<float>({r.superpixel_filter, r.superpixel, r.pixel_filter, r.pixel}),
            std::vector<float>({(s * 9.0f) * 2.75f / 500.0f, s * 2.75f / 500.0f, (5.0f * 2.75f) / 500.0f,
                                2.75f / 500.0f}));
  EXPECT_EQ(stages.superpixel_support.radius, r.superpixel);
  EXPECT_EQ(stages.pixel_filter.radius, r.pixel_filter);
}

// A radius the 32-bit kernel cannot compute is refused with the reason, naming --superpixels only
// where the radius comes from it.
TEST(StageOptions, RadiiOutOfTheKernelsRange) {
  superpixel_count = 5000;
  average_depth = 1e7f;
  EXPECT_EQ(refusal(first_view(500.0f, 640, 480)),
            "--depth-avg 1e+07 makes the smoothing radius 20000 (one pixel at fx 500 of the first view), too large for "
            "the filter's 32-bit kernel; give the scene's average depth in the length unit of the view files");
  average_depth = 2.75f;
  superpixel_count = 307201;  // more superpixels than pixels: named as such, whatever the depth
  EXPECT_EQ(refusal(first_view(500.0f, 640, 480)),
            "--superpixels 307201 asks for more superpixels than the 640 x 480 pixels of the first view");
  superpixel_count = 1;  // one superpixel of the whole image: its 9 radii are too wide at this depth
  average_depth = 4e4f;
  EXPECT_NE(refusal(first_view(500.0f, 640, 480)).find("too large for the filter's 32-bit kernel; give the scene's "
                                                        "average depth in the length unit of the view files and check "
                                                        "--superpixels"),
            std::string::npos);
  superpixel_count = 5000;
}

// The visible share starts the fine model on measured planes and gives the fine filter its own data
// term, which an explicit --alpha overrides; without the share both stay as they were.
TEST(StageOptions, VisibleShareChangesTheStartTheLimitsAndTheDefaultAlpha) {
  average_depth = 2.75f;
  superpixel_count = 5000;
  alpha = 0.001f;
  alpha_given = false;
  const Camera view = first_view(500.0f, 640, 480);
  StageOptions stages = make_stage_options(view);
  EXPECT_EQ(stages.fine_start, FineStart::superpixel_scaffold);
  EXPECT_EQ(stages.pixel_filter.alpha, 0.001f);
  EXPECT_EQ(stages.drift_limit, 0.0f);
  EXPECT_EQ(stages.turn_limit, 0.0f);

  support_rule.share = 0.3f;
  stages = make_stage_options(view);
  EXPECT_EQ(stages.fine_start, FineStart::measured_planes);
  EXPECT_EQ(stages.drift_limit, kVisibleDriftLimit);
  EXPECT_EQ(stages.turn_limit, kVisibleTurnLimit);
  EXPECT_EQ(stages.pixel_filter.alpha, kVisibleSupportAlpha);
  EXPECT_EQ(stages.superpixel_filter.alpha, alpha_sp);
  EXPECT_EQ(stages.pixel_support.rule.share, 0.3f);

  alpha_given = true;
  EXPECT_EQ(make_stage_options(view).pixel_filter.alpha, 0.001f);
  alpha_given = false;
  support_rule = SupportRule();
}
