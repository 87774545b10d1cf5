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
