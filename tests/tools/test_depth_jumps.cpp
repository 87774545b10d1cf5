// quillara-depth drops the depths on the near side of a jump to a farther surface: the band a
// straddling window grows a near surface by.

#include <gtest/gtest.h>

#include "tools/depth/depth_jumps.h"

namespace {

// Columns from left to right: a far surface (3.0) that rises by 0.5 % per row (a slope, no jump),
// two columns of a middle one (2.5), a near one (2.0) with an empty column (no jump either).
CMatrix<float> steps() {
  CMatrix<float> depth(24, 10);
  for (int y = 0; y < depth.ySize; ++y)
    for (int x = 0; x < depth.xSize; ++x)
      depth(x, y) = x < 6 ? 3.0f * (1.0f + 0.005f * y) : x < 8 ? 2.5f : x == 14 ? 0.0f : 2.0f;
  return depth;
}

TEST(DepthJumps, TheNearSideOfEveryJumpGoesAndNothingElse) {
  CMatrix<float> depth = steps();
  const CMatrix<float> before = steps();
  const long dropped = depth_tool::drop_near_side_of_jumps(depth);
  long zeroed = 0;
  for (int y = 0; y < depth.ySize; ++y)
    for (int x = 0; x < depth.xSize; ++x) {
      // Three columns beside each jump; the middle surface is read as it was, so the near one still
      // sees it although all of it goes.
      const bool near_side = x >= 6 && x <= 10;
      EXPECT_EQ(depth(x, y), near_side ? 0.0f : before(x, y)) << x << ", " << y;
      zeroed += near_side;
    }
  EXPECT_EQ(dropped, zeroed);
}

}  // namespace
