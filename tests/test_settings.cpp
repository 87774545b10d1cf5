#include <gtest/gtest.h>

#include "src/settings.h"

// The run-level settings start at the values a run without options uses.
TEST(Settings, InitialValues) {
  EXPECT_EQ(average_depth, -1.0f);
  EXPECT_EQ(alpha_sp, 0.1f);
  EXPECT_EQ(alpha, 0.001f);
  EXPECT_EQ(superpixel_count, 5000);
  EXPECT_EQ(gradient_descent_timestep, 0.005f);
  EXPECT_TRUE(use_normal_dot_weight);
  EXPECT_FALSE(improve_cameras);
  EXPECT_FALSE(use_backface_visibility_test);
}
