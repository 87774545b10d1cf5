// Which views look the same way, and when camera alignment has too few of them.

#include <gtest/gtest.h>

#include <cmath>

#include "src/improve/view_neighbours.h"

namespace {

// Cameras whose optical axes lie in the x-z plane at the given angles (degrees) from z.
struct Views {
  std::vector<Camera> cameras;
  std::vector<Camera*> pointers;
  explicit Views(std::vector<double> const& degrees) : cameras(degrees.size()) {
    for (std::size_t i = 0; i < degrees.size(); ++i) {
      const double a = degrees[i] * M_PI / 180.0;
      Camera& c = cameras[i];
      // Rows of the world-to-camera rotation, kept by columns: x = (cos, 0, -sin), y, z = axis.
      const float r[9] = {float(std::cos(a)), 0.0f, float(-std::sin(a)), 0.0f, 1.0f, 0.0f,
                          float(std::sin(a)), 0.0f, float(std::cos(a))};
      for (int row = 0; row < 3; ++row)
        for (int col = 0; col < 3; ++col) c.R[3 * col + row] = r[3 * row + col];
      c.index = static_cast<int>(i);
      pointers.push_back(&c);
    }
  }
};

}  // namespace

TEST(ViewNeighbours, WithinSixtyDegreesNearestFirst) {
  const Views v({0.0, 59.0, -20.0, 61.0, 180.0, 35.0});
  EXPECT_EQ(views_facing_alike(v.pointers, 0), (std::vector<int>{2, 5, 1}));
  EXPECT_EQ(views_facing_alike(v.pointers, 4), std::vector<int>{});
  EXPECT_EQ(views_facing_alike(v.pointers, 3), (std::vector<int>{1, 5}));
}

// A ring of 8 gives every view two others within 60 degrees, which is too few (the end-to-end test
// checks the message); one view with three is enough.
TEST(ViewNeighbours, AlignmentNeedsOneViewWithThree) {
  std::vector<double> ring;
  for (int i = 0; i < 8; ++i) ring.push_back(45.0 * i);
  EXPECT_NE(overlap_problem(Views(ring).pointers), "");
  ring.push_back(10.0);
  EXPECT_EQ(overlap_problem(Views(ring).pointers), "");
}
