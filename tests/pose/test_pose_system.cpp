#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ketra/algorithms/basic.h"
#include "ketra/tools.h"
#include "src/pose/pose_system.h"
#include "src/pose/pose_update.h"
#include "src/render/render_buffer.h"
#include "tests/support/ketra_test_support.h"

namespace {

// A level of W x H pixels with focal length 20 and the principal point a little off centre.
Projection level_projection(int W, int H) {
  Projection p{};
  p.width = W, p.height = H, p.fx = p.fy = 20.0f, p.far = empty_depth;
  p.cx = 0.5f * static_cast<float>(W - 1) + 0.75f, p.cy = 0.5f * static_cast<float>(H - 1) - 0.5f;
  p.R[0] = p.R[4] = p.R[8] = 1.0f;
  return p;
}

class PoseSystem : public KetraTest {
 protected:
  // A system array: 3 residual planes, then 18 Jacobian planes.
  ketra::Array<float, 3> system(int W, int H) { return device_array<3>(make_uint4(W, H, 21, 1)); }
  static ketra::Array<float, 3> planes(ketra::Array<float, 3> const& a, int first, int last) {
    ketra::Array<float, 4> v = ketra::block(ketra::internal::as4D(a), ketra::Range(), ketra::Range(),
                                            ketra::Range(first, last));
    return ketra::internal::decreaseArrayDimension<float, 4, 3>(v);
  }
};

}  // namespace

// The rows of pixels with no surface, with a colour error above 0.5, or warped outside the
// level become zero; every other row stays, and the count and colours say which is which.
TEST_F(PoseSystem, InvalidPixelsDropOutOfTheSystem) {
  const int W = 24, H = 18;
  std::vector<uchar4> real(W * H), rendered(W * H);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) real[y * W + x] = rendered[y * W + x] = make_uchar4(10 * x, 10 * y, 100, 255);
  std::vector<float> depth(W * H, 2.0f);
  depth[3 * W + 3] = empty_depth;
  rendered[5 * W + 5] = make_uchar4(255, 255, 255, 255);            // far off
  rendered[5 * W + 7].z = 100 + 120;                                 // error 120/255, kept
  rendered[5 * W + 9].z = 100 + 128;                                 // error 128/255, rejected
  ketra::Array<uchar4, 2> real_d = device_array<2, uchar4>(make_uint4(W, H, 1, 1), real);
  ketra::Array<uchar4, 2> rendered_d = device_array<2, uchar4>(make_uint4(W, H, 1, 1), rendered);
  ketra::Array<float, 2> depth_d = device_array<2>(make_uint4(W, H, 1, 1), depth);
  ketra::Array<uchar4, 2> validity = device_array<2, uchar4>(make_uint4(W, H, 1, 1));
  ketra::Array<float, 3> sys = system(W, H);
  ketra::Array<float, 3> residual = planes(sys, 0, 2);

  // The pose update moves every point 1.5 pixels towards the columns 0 and 1, out of the level.
  const Projection level = level_projection(W, H);
  for (float shift : {0.0f, 1.5f}) {
    ketra::set(sys, 1.0f);
    const Projection delta = pose_delta(level, {0, 0, 0, shift * 2.0f / level.fx, 0, 0});
    computeDifferenceImage(residual, real_d, rendered_d, depth_d, 0.5f, delta, 1.0f / level.fx, 1.0f / level.fy,
                           level.cx, level.cy);
    EXPECT_EQ(setNANtoZero(sys, validity, depth_d), shift == 0.0f ? 3u : 3u + 2u * H);
    const std::vector<float> s = download(sys);
    const std::vector<uchar4> colours = download(validity);
    auto plane = [&](int x, int y, int z) { return s[(z * H + y) * W + x]; };
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        const bool no_surface = x == 3 && y == 3;
        const bool outlier = y == 5 && (x == 5 || x == 9);
        const bool outside = shift > 0.0f && x < 2;
        const uchar4 c = colours[y * W + x];
        if (no_surface || outlier || outside) {
          for (int z = 0; z < 21; ++z) ASSERT_EQ(plane(x, y, z), 0.0f) << x << ", " << y << ", " << z;
          EXPECT_EQ(c.x, no_surface ? 0 : 200) << x << ", " << y;
          EXPECT_EQ(c.y, 0);
        } else {
          EXPECT_EQ(plane(x, y, 20), 1.0f);
          EXPECT_EQ(c.y, 200);
          EXPECT_EQ(c.w, 1);
        }
      }
    if (shift == 0.0f) {
      // Without motion the real image is read at the pixel itself.
      EXPECT_NEAR(plane(7, 5, 2), -120 / 255.0f, 1e-5f);
      EXPECT_NEAR(plane(11, 9, 0), 0.0f, 1e-5f);
    }
  }
}

// The Jacobian planes are the derivatives of the residual: compared with central differences of
// the residual under small changes of each of the six parameters, on a smooth image and a
// slanted surface.
TEST_F(PoseSystem, JacobianMatchesDifferencesOfTheResidual) {
  const int W = 40, H = 30;
  std::vector<uchar4> real(W * H);
  std::vector<float> depth(W * H), gradients(W * H * 6);
  auto channel = [](int c, float x, float y) {
    return 128.0f + 90.0f * std::sin(0.21f * x + 0.13f * (c + 1) * y + c);
  };
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      real[y * W + x] = make_uchar4(static_cast<unsigned char>(channel(0, x, y)),
                                    static_cast<unsigned char>(channel(1, x, y)),
                                    static_cast<unsigned char>(channel(2, x, y)), 255);
      depth[y * W + x] = 2.0f + 0.02f * x + 0.01f * y;
    }
  // Central differences of the bytes, as the pyramid gives them.
  for (int c = 0; c < 3; ++c)
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        auto at = [&](int xx, int yy) {
          const uchar4 p = real[std::abs(yy >= H ? 2 * H - 2 - yy : yy) * W + std::abs(xx >= W ? 2 * W - 2 - xx : xx)];
          return (c == 0 ? p.x : c == 1 ? p.y : p.z) / 255.0f;
        };
        gradients[(c * H + y) * W + x] = 0.5f * (at(x + 1, y) - at(x - 1, y));
        gradients[((3 + c) * H + y) * W + x] = 0.5f * (at(x, y + 1) - at(x, y - 1));
      }
  ketra::Array<uchar4, 2> real_d = device_array<2, uchar4>(make_uint4(W, H, 1, 1), real);
  ketra::Array<uchar4, 2> rendered_d = device_array<2, uchar4>(make_uint4(W, H, 1, 1));
  ketra::set(rendered_d, make_uchar4(0, 0, 0, 0));
  ketra::Array<float, 2> depth_d = device_array<2>(make_uint4(W, H, 1, 1), depth);
  ketra::Array<float, 3> gradients_d = device_array<3>(make_uint4(W, H, 6, 1), gradients);
  ketra::Array<float, 3> sys = system(W, H);
  ketra::Array<float, 3> residual = planes(sys, 0, 2), jacobian = planes(sys, 3, 20);

  const Projection level = level_projection(W, H);
  const PoseUpdate at = {0, 0, 0, 0.02f, -0.03f, 0.05f};
  auto residual_at = [&](PoseUpdate const& x) {
    computeDifferenceImage(residual, real_d, rendered_d, depth_d, 100.0f, pose_delta(level, x), 1.0f / level.fx,
                           1.0f / level.fy, level.cx, level.cy);
    return download(residual);
  };
  computeGradientPsi(jacobian, gradients_d, depth_d, pose_delta(level, at), 1.0f / level.fx, 1.0f / level.fy,
                     level.cx, level.cy);
  const std::vector<float> J = download(jacobian);
  for (int k = 0; k < 6; ++k) {
    const float eps = k < 3 ? 0.03f : 0.08f;  // about half a pixel of motion
    PoseUpdate plus = at, minus = at;
    plus[k] += eps;
    minus[k] -= eps;
    const std::vector<float> rp = residual_at(plus), rm = residual_at(minus);
    double error = 0, norm = 0;
    int used = 0;
    for (int c = 0; c < 3; ++c)
      for (int y = 2; y < H - 2; ++y)
        for (int x = 2; x < W - 2; ++x) {
          const int i = (c * H + y) * W + x;
          if (!std::isfinite(rp[(0 * H + y) * W + x]) || !std::isfinite(rm[(0 * H + y) * W + x])) continue;
          const double numeric = (rp[i] - rm[i]) / (2.0 * eps);
          const double analytic = J[((3 * k + c) * H + y) * W + x];
          error += (numeric - analytic) * (numeric - analytic);
          norm += analytic * analytic;
          ++used;
        }
    EXPECT_GT(used, W * H);
    EXPECT_LT(std::sqrt(error / norm), 0.1) << "parameter " << k;
  }
}

namespace {

// A plane n . p = h in the camera frame of level_projection(W, H), as depth per array pixel.
std::vector<float> plane_depth(int W, int H, float3 n, float h) {
  const Projection level = level_projection(W, H);
  std::vector<float> depth(W * H);
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const float a = (static_cast<float>(W - 1 - x) - level.cx) / level.fx;
      const float b = (static_cast<float>(H - 1 - y) - level.cy) / level.fy;
      depth[y * W + x] = h / (n.x * a + n.y * b + n.z);
    }
  return depth;
}

}  // namespace

// The depth rows of a model plane against a measured plane: the distance between the planes in
// footprints, derivatives that agree with differences of the residual where the planes meet, and
// rows dropped where the measurement is missing or the distance exceeds the threshold.
TEST_F(PoseSystem, DepthRowsMeasureTheModelAgainstTheMeasuredDepth) {
  const int W = 40, H = 30;
  const Projection level = level_projection(W, H);
  const float3 n = make_float3(0.2f, -0.1f, -0.97467943f);  // unit, facing the camera
  const float h = -2.0f;
  ketra::Array<float, 2> model = device_array<2>(make_uint4(W, H, 1, 1), plane_depth(W, H, n, h));
  std::vector<float> normals(W * H * 3);
  for (int i = 0; i < W * H; ++i) normals[i] = 3 * n.x, normals[W * H + i] = 3 * n.y, normals[2 * W * H + i] = 3 * n.z;
  ketra::Array<float, 3> normal_sum = device_array<3>(make_uint4(W, H, 3, 1), normals);
  ketra::Array<float, 3> rows = device_array<3>(make_uint4(W, H, 7, 1));
  auto measured = [&](std::vector<float> const& depth) {
    return MeasuredDepth{device_array<2>(make_uint4(W, H, 1, 1), depth), level.fx, level.fy, level.cx, level.cy};
  };
  auto rows_at = [&](MeasuredDepth const& m, PoseUpdate const& x, float threshold, float weight) {
    computeDepthResidual(rows, model, normal_sum, m, pose_delta(level, x), 1.0f / level.fx, 1.0f / level.fy, level.cx,
                         level.cy, threshold, weight);
    return download(rows);
  };

  // Measured 1 cm nearer along the normal: weight times 0.01 over the footprint depth / fx.
  const std::vector<float> nearer_depth = plane_depth(W, H, n, h + 0.01f);
  const std::vector<float> shifted = rows_at(measured(nearer_depth), {}, 10.0f, 0.5f);
  for (int y = 2; y < H - 2; ++y)
    for (int x = 2; x < W - 2; ++x)
      ASSERT_NEAR(shifted[y * W + x], -0.5f * 0.01f * level.fx / nearer_depth[y * W + x], 0.002f) << x << ", " << y;

  // Where the planes meet, the derivatives are those of the residual.
  const MeasuredDepth same = measured(plane_depth(W, H, n, h));
  const std::vector<float> J = rows_at(same, {}, 10.0f, 1.0f);
  for (int k = 0; k < 6; ++k) {
    const float eps = k < 3 ? 0.002f : 0.004f;
    PoseUpdate plus{}, minus{};
    plus[k] = eps;
    minus[k] = -eps;
    const std::vector<float> rp = rows_at(same, plus, 10.0f, 1.0f), rm = rows_at(same, minus, 10.0f, 1.0f);
    double error = 0, norm = 0;
    for (int y = 3; y < H - 3; ++y)
      for (int x = 3; x < W - 3; ++x) {
        const int i = y * W + x;
        const double numeric = (rp[i] - rm[i]) / (2.0 * eps), analytic = J[(1 + k) * W * H + i];
        error += (numeric - analytic) * (numeric - analytic);
        norm += analytic * analytic;
      }
    EXPECT_LT(std::sqrt(error / norm), 0.05) << "parameter " << k;
  }

  // A missing measurement drops the pixels whose reads touch it.
  std::vector<float> holed = plane_depth(W, H, n, h);
  holed[10 * W + 10] = 0.0f;
  rows_at(measured(holed), {}, 10.0f, 1.0f);
  ketra::Array<float, 2> model_depth = model;
  EXPECT_GE(setNANtoZero(rows, ketra::Array<uchar4, 2>{}, model_depth), 1u);
  EXPECT_EQ(download(rows)[10 * W + 10], 0.0f);

  // Facing planes 0.1 footprint apart: kept under a threshold of 0.2 footprints, dropped under 0.05.
  const float3 facing = make_float3(0.0f, 0.0f, -1.0f);
  ketra::set(model, 2.0f);
  ketra::set(normal_sum, 0.0f);
  ketra::Array<float, 4> z_block =
      ketra::block(ketra::internal::as4D(normal_sum), ketra::Range(), ketra::Range(), ketra::Range(2, 2));
  ketra::Array<float, 3> z_plane = ketra::internal::decreaseArrayDimension<float, 4, 3>(z_block);
  ketra::set(z_plane, facing.z);
  const MeasuredDepth apart = measured(plane_depth(W, H, facing, -2.01f));
  for (float threshold : {0.2f, 0.05f}) {
    const std::vector<float> r = rows_at(apart, {}, threshold, 1.0f);
    for (int y = 1; y < H - 1; ++y)
      for (int x = 1; x < W - 1; ++x)
        ASSERT_EQ(std::isnan(r[y * W + x]), threshold < 0.1f) << x << ", " << y << ", threshold " << threshold;
  }
}
