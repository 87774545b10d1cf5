#include <gtest/gtest.h>

#include <array>

#include "device/vector_math.h"
#include "src/pose/gauss_newton_step.h"
#include "src/pose/pose_update.h"
#include "src/pose/pyramid.h"

namespace {

// A camera with a general pose: R by columns, t, and centre -R^T t.
Camera posed_camera() {
  Camera c;
  const PoseUpdate start = {0.4f, -0.7f, 1.1f, 0.3f, -0.2f, 2.5f};
  const std::array<float, 9> R = pose_update_rotation(start);  // row by row
  for (int r = 0; r < 3; ++r)
    for (int col = 0; col < 3; ++col) c.R[3 * col + r] = R[3 * r + col];
  for (int r = 0; r < 3; ++r) c.t[r] = start[3 + r];
  return c;
}

float3 camera_point(Camera const& c, float3 p) {
  float v[3];
  for (int r = 0; r < 3; ++r) v[r] = c.R[r] * p.x + c.R[3 + r] * p.y + c.R[6 + r] * p.z + c.t[r];
  return make_float3(v[0], v[1], v[2]);
}

}  // namespace

// The camera moved by an update sees a world point where the update moves the point seen by the
// camera before, the motion the kernels apply through the projection; its centre follows.
TEST(PoseUpdate, MovingTheCameraAgreesWithMovingItsPoints) {
  Camera c = posed_camera();
  const PoseUpdate x = {0.01f, -0.02f, 0.03f, 0.05f, -0.04f, 0.02f};
  const Projection delta = pose_delta(Projection{}, x);
  const float3 p = make_float3(0.7f, -1.3f, 4.0f);
  const float3 before = camera_point(c, p);
  apply_pose_update(c, x);
  const float3 after = camera_point(c, p);
  const float expected[3] = {
      delta.R[0] * before.x + delta.R[1] * before.y + delta.R[2] * before.z + delta.t[0],
      delta.R[3] * before.x + delta.R[4] * before.y + delta.R[5] * before.z + delta.t[1],
      delta.R[6] * before.x + delta.R[7] * before.y + delta.R[8] * before.z + delta.t[2]};
  const float3 centre = camera_point(c, make_float3(c.center[0], c.center[1], c.center[2]));
  EXPECT_NEAR(length(after - make_float3(expected[0], expected[1], expected[2])), 0.0f, 2e-5f);
  EXPECT_NEAR(length(centre), 0.0f, 2e-5f);
}

// No information gives no motion; a parameter the image does not constrain stays at zero while
// the others are solved.
TEST(NormalEquations, RankDeficientSystemsLeaveTheUnconstrainedComponentsAtZero) {
  EXPECT_EQ(solve_normal_equations({}, {1, 2, 3, 4, 5, 6}), PoseUpdate{});

  std::array<float, 36> H{};
  const float diagonal[6] = {4, 0, 2, 0, 1, 0};
  for (int i = 0; i < 6; ++i) H[7 * i] = diagonal[i];
  H[2] = H[12] = 1;  // couples parameters 0 and 2
  const PoseUpdate x = solve_normal_equations(H, {6, 0, 4, 0, 3, 0});
  EXPECT_NEAR(x[0], 8.0f / 7.0f, 1e-5f);
  EXPECT_NEAR(x[2], 10.0f / 7.0f, 1e-5f);
  EXPECT_NEAR(x[4], 3.0f, 1e-5f);
  EXPECT_EQ(x[1], 0.0f);
  EXPECT_EQ(x[3], 0.0f);
  EXPECT_EQ(x[5], 0.0f);
}

// 880 rows reach 110 in exactly three halvings, which the float logarithms must not round down.
TEST(Pyramid, LevelsDownToTheSmallestHeight) {
  EXPECT_EQ(pyramid_levels(880, 110, 0.5f), 3);
  const PyramidLevel coarsest = pyramid_level(1173, 880, 0.5f, 3);
  EXPECT_EQ(coarsest.height, 110u);
  EXPECT_EQ(coarsest.width, 147u);  // 146.625 rounded
}
