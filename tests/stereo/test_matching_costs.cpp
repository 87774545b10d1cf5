// Plane-sweep matching costs on textures whose reprojections are exact: a shift per label, the
// bounds and margins of the three kernels, the fast warp path against the rule it implements,
// and the dumps.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "src/stereo/depthmap_estimation_kernels.h"
#include "src/stereo/matching_costs.h"
#include "src/render/point_batches.h"
#include "src/stereo/ncc_window.h"
#include "src/stereo/sweep_geometry.h"
#include "tests/stereo/stereo_test_support.h"

using namespace depthmap_estimation_kernels;

namespace {

constexpr int W = 40, H = 20;

// The three ways of adding a view's costs; returns what the call printed.
enum class Kind { sad, ncc, ncc_warped };

std::string add(Kind kind, ketra::Array<float, 4>& costs, ketra::Array<uchar4, 2> const& ref, ketra::Array<uchar4, 2> const& img,
         float first, float last, ProjectionMatrix P) {
  testing::internal::CaptureStdout();
  if (kind == Kind::ncc_warped)
    add_matching_costs2(costs, ref, img, first, last, 1.0f, 1.0f, 0.0f, 0.0f, P, SAD);  // the metric is ignored
  else
    add_matching_costs(costs, ref, img, first, last, 1.0f, 1.0f, 0.0f, 0.0f, P, kind == Kind::sad ? SAD : NCC);
  return testing::internal::GetCapturedStdout();
}

// Margins of the window kernels: 4 <= x < W - 3, 4 <= y < H - 3.
bool in_margins(int x, int y) { return x >= 4 && x < W - 3 && y >= 4 && y < H - 3; }

class WindowTest : public StereoTest {
 protected:
  // The 7 x 7 window means of an image, by the two passes of the warped path.
  ketra::Array<float4, 2> means(ketra::Array<uchar4, 2> const& im) {
    ketra::Array<ushort4, 2> rows = array<ushort4>(W, H);
    ketra::Array<float4, 2> m = array<float4>(W, H);
    add_matching_costs_mean_kernel1<32, 4, 3>(render_launch::pixel_shape(W, H), rows, im);
    add_matching_costs_mean_kernel2<3>(render_launch::pixel_shape(W, H), m, rows);
    return m;
  }
};

}  // namespace

// Labels at inverse depths 1 .. 6 shift the other image by 1 .. 6 pixels; it is the reference
// moved by 4, so label 3 is the best wherever a metric gives a cost. Where a sample, or too much of
// a window, leaves the other image at a label, that label gets no cost; the leftmost column none at
// any label.
TEST_F(StereoTest, EachMetricFindsTheShiftOfATexture) {
  const std::vector<uchar4> ref = random_image(W, H, 7);
  ketra::Array<uchar4, 2> r = image(W, H, ref), o = image(W, H, shifted(ref, W, 4));
  for (Kind kind : {Kind::sad, Kind::ncc, Kind::ncc_warped}) {
    ketra::Array<float, 4> costs = volume(W, H, 6);
    add(kind, costs, r, o, 1.0f, 1.0f / 6.0f, shift_projection(1.0f));
    const Volume v = read_volume(costs);
    int scored = 0;
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        for (int l = 0; l < 6; ++l) {
          // Columns x - 3 .. x + 3 sample inside from column l + 1 on; the direct window needs 5 of
          // them (35 samples), the warped means all 7.
          const int columns = std::min(7, std::max(0, x + 4 - (l + 1)));
          const bool expected = kind == Kind::sad ? x >= l + 1
                                : kind == Kind::ncc ? columns >= 5 && in_margins(x, y)
                                                    : columns == 7 && in_margins(x, y);
          ASSERT_EQ(v.count(x, y, l), expected ? 1.0f : 0.0f) << int(kind) << ": " << x << ", " << y << ", " << l;
          if (!expected) {
            ASSERT_EQ(v.sum(x, y, l), 0.0f);
          }
        }
        if (v.count(x, y, 3) == 0.0f) continue;
        ++scored;
        EXPECT_LT(v.sum(x, y, 3), 1e-4f) << int(kind) << ": " << x << ", " << y;
        for (int l : {0, 1, 2, 4, 5})
          if (v.count(x, y, l) > 0) {
            EXPECT_GT(v.sum(x, y, l), v.sum(x, y, 3) + 0.01f) << int(kind);
          }
      }
    EXPECT_GT(scored, kind == Kind::sad ? 600 : 250) << int(kind);
  }
}

// At depth 1 (both ends of the range) the projection is exact: with no shift every pixel maps
// onto itself, x = 0 onto the last column W - 1, which is still inside. One pixel of shift in x
// or y puts the first column or row outside at every label. Identical images cost 0; windows
// of one colour have no correlation and add nothing, not a cost of 0.5.
TEST_F(StereoTest, BoundsAreInclusiveAndFlatWindowsAddNothing) {
  const std::vector<uchar4> ref = random_image(W, H, 3);
  ketra::Array<uchar4, 2> r = image(W, H, ref);
  for (Kind kind : {Kind::sad, Kind::ncc, Kind::ncc_warped}) {
    for (int shift = 0; shift < 3; ++shift) {
      ketra::Array<float, 4> costs = volume(W, H, 2);
      add(kind, costs, r, r, 1.0f, 1.0f, shift_projection(shift == 1 ? 1.0f : 0.0f, shift == 2 ? 1.0f : 0.0f));
      const Volume v = read_volume(costs);
      for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x) {
          const bool inside = !(shift == 1 && x == 0) && !(shift == 2 && y == 0);
          // A shifted window loses its first column or row, which the margins already leave out.
          const bool expected = kind == Kind::sad ? inside : in_margins(x, y);
          ASSERT_EQ(v.count(x, y, 1), expected ? 1.0f : 0.0f) << int(kind) << shift << ": " << x << ", " << y;
          if (shift == 0 && expected) {
            ASSERT_NEAR(v.sum(x, y, 1), 0.0f, 1e-6f);
          }
        }
    }
  }
  ketra::Array<uchar4, 2> flat = image(W, H, std::vector<uchar4>(W * H, make_uchar4(90, 40, 200, 255)));
  for (Kind kind : {Kind::ncc, Kind::ncc_warped}) {
    ketra::Array<float, 4> costs = volume(W, H, 2);
    add(kind, costs, flat, flat, 1.0f, 1.0f, shift_projection(0.0f));
    for (float c : download(costs)) ASSERT_EQ(c, 0.0f) << int(kind);
  }
}

// The direct window weighs its valid samples by the reference's alpha: with the first two of the
// seven columns outside the other image, 35 samples score; one of them with alpha 0 leaves 34,
// below 70 % of 49, and the pixel is skipped. Three columns outside leave 28.
TEST_F(StereoTest, DirectNccNeedsSeventyPercentOfItsWindow) {
  constexpr int shift = 5, y = 8;
  std::vector<uchar4> ref = random_image(W, H, 11);
  ketra::Array<uchar4, 2> r = image(W, H, ref), o = image(W, H, shifted(ref, W, shift));
  auto counts = [&] {
    ketra::Array<float, 4> costs = volume(W, H, 2);
    upload(r, ref);
    add(Kind::ncc, costs, r, o, 1.0f, 1.0f, shift_projection(shift));
    const Volume v = read_volume(costs);
    return std::vector<float>{v.count(shift, y, 0), v.count(shift + 1, y, 0), v.count(shift + 2, y, 0)};
  };
  EXPECT_EQ(counts(), (std::vector<float>{0, 1, 1}));
  ref[y * W + shift + 1].w = 0;  // inside the window of x = shift + 1 only among the valid columns
  EXPECT_EQ(counts(), (std::vector<float>{0, 0, 1}));
}

// The warped image at one depth, against tex2D and the reprojection rule: bilinear colour with
// alpha 255 also where the other image's alpha is 0; (0, 0, 0, 0) outside the image and where
// the sampling rates differ by more than 2 (here w = 3 d).
TEST_F(StereoTest, WarpReadsTheOtherViewAsTheTextureDoes) {
  std::vector<uchar4> other = random_image(W, H, 5);
  other[7 * W + 10].w = 0;
  ketra::Array<uchar4, 2> o = image(W, H, other), warped = array<uchar4>(W, H);
  img_tex.filter = device::FilterMode::Linear;
  std::size_t offset = 1;
  device::bindTexture2D(&offset, img_tex, o.data, W, H, o.pitch.y);
  ASSERT_EQ(offset, 0u);
  // A slight rotation and scale with fx = 37: positions between pixels, some outside.
  const ProjectionMatrix P{{36.2f, 2.1f, 19.0f, 0.3f, -1.7f, 36.9f, 9.0f, 0.1f, 0.01f, -0.02f, 1.0f, 0.05f}};
  const SweepCamera cam{1.0f / 37.0f, 1.0f / 37.0f, 19.3f, 9.6f, P};
  const float d = 2.5f;
  add_matching_costs_warp_kernel(render_launch::pixel_shape(W, H), warped, d, cam.inv_fx, cam.inv_fy, cam.cx, cam.cy,
                                 P, 37.0f);
  const std::vector<uchar4> w = download(warped);
  int outside = 0;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const Reprojection rp = reproject(x, y, d, W, H, cam);
      const uchar4 got = w[y * W + x];
      if (!inside(rp, W, H)) {
        ++outside;
        ASSERT_EQ(got.w, 0);
        continue;
      }
      const float4 c = device::tex2D(img_tex, (W - 1 - rp.px) + 0.5f, (H - 1 - rp.py) + 0.5f);
      ASSERT_EQ(got.x, static_cast<int>(std::nearbyint(c.x * 255.0f))) << x << ", " << y;
      ASSERT_EQ(got.y, static_cast<int>(std::nearbyint(c.y * 255.0f)));
      ASSERT_EQ(got.z, static_cast<int>(std::nearbyint(c.z * 255.0f)));
      ASSERT_EQ(got.w, 255);
    }
  EXPECT_GT(outside, 0);
  EXPECT_LT(outside, W * H / 2);
  const ProjectionMatrix far_scale{{3, 0, 0, 0, 0, 3, 0, 0, 0, 0, 3, 0}};  // w = 3 d: scale 1/3
  add_matching_costs_warp_kernel(render_launch::pixel_shape(W, H), warped, 1.0f, 1.0f, 1.0f, 0.0f, 0.0f, far_scale,
                                 1.0f);
  for (uchar4 p : download(warped)) ASSERT_EQ(p.w, 0);
  device::unbindTexture(img_tex);
}

// Window means: all 49 pixels inside the image with alpha above 0, else (0, 0, 0, 0); a pixel of
// alpha 0 invalidates every mean whose window covers it. Valid means are the RGB averages in 0..1.
TEST_F(WindowTest, WindowMeansNeedAllTheirPixels) {
  std::vector<uchar4> pixels = random_image(W, H, 9);
  pixels[10 * W + 20].w = 0;
  const std::vector<float4> m = download(means(image(W, H, pixels)));
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const bool valid = x >= 3 && x < W - 3 && y >= 3 && y < H - 3 && !(std::abs(x - 20) <= 3 && std::abs(y - 10) <= 3);
      const float4 got = m[y * W + x];
      ASSERT_EQ(got.w, valid ? 1.0f : 0.0f) << x << ", " << y;
      if (!valid) continue;
      double r = 0;
      for (int v = y - 3; v <= y + 3; ++v)
        for (int u = x - 3; u <= x + 3; ++u) r += pixels[v * W + u].x;
      ASSERT_NEAR(got.x, r / 255.0 / 49.0, 1e-6);
    }
}

// The warped window correlation adds, at the pixels it scores, exactly the cost of the rule:
// a = warped / 255 minus its window mean, b = reference minus its mean, sums over the 49 window
// pixels in order, 1 - (ncc + 1) / 2; nothing where the product of the sums is at most 1e-6.
TEST_F(WindowTest, WarpedWindowCorrelationIsTheRuleExactly) {
  const std::vector<uchar4> ref = random_image(W, H, 21), warp = random_image(W, H, 22);
  std::vector<uchar4> smooth = ref;  // a low-contrast patch: products near the threshold
  for (int y = 5; y < 15; ++y)
    for (int x = 8; x < 20; ++x) smooth[y * W + x] = make_uchar4(100 + (x + y) % 2, 50, 50, 255);
  for (auto const& warped_pixels : {warp, smooth}) {
    ketra::Array<uchar4, 2> r = image(W, H, ref), w = image(W, H, warped_pixels);
    ketra::Array<float4, 2> rm = means(r), wm = means(w);
    ketra::Array<float, 4> costs = volume(W, H, 3);
    ref_img_tex.filter = device::FilterMode::Point;
    std::size_t offset = 1;
    device::bindTexture2D(&offset, ref_img_tex, r.data, W, H, r.pitch.y);
    add_matching_costs_NCC_kernel2<32, 4, 3>(render_launch::pixel_shape(W, H), costs, r, rm, w, wm, 2);
    device::unbindTexture(ref_img_tex);
    const Volume v = read_volume(costs);
    const std::vector<float4> rmh = download(rm), wmh = download(wm);
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x) {
        float expected = NAN;
        if (in_margins(x, y) && wmh[y * W + x].w != 0) {
          const float4 a_mean = wmh[y * W + x], b_mean = rmh[y * W + x];
          NccSums s;
          for (int v2 = y - 3; v2 <= y + 3; ++v2)
            for (int u = x - 3; u <= x + 3; ++u) {
              const uchar4 p = warped_pixels[v2 * W + u], q = ref[v2 * W + u];
              s.add(p.x * (1.0f / 255.0f) - a_mean.x, p.y * (1.0f / 255.0f) - a_mean.y, p.z * (1.0f / 255.0f) - a_mean.z,
                    q.x * (1.0f / 255.0f) - b_mean.x, q.y * (1.0f / 255.0f) - b_mean.y, q.z * (1.0f / 255.0f) - b_mean.z);
            }
          const float prod = s.aa * s.bb;
          if (prod > 1e-6f) {
            const float n = 0.5f * (s.ab / std::sqrt(prod)) + 0.5f;
            expected = 1.0f - (n < 0.0f ? 0.0f : n > 1.0f ? 1.0f : n);
          }
        }
        ASSERT_EQ(v.count(x, y, 2), expected == expected ? 1.0f : 0.0f) << x << ", " << y;
        if (expected == expected) {
          ASSERT_EQ(v.sum(x, y, 2), expected) << x << ", " << y;
        }
        ASSERT_EQ(v.count(x, y, 0) + v.count(x, y, 1), 0.0f);
      }
  }
}

// With output_directory + "/debug/" present, the fast path dumps the warped image and its means
// at label 0 and the cost sums of label 0 as they were before the call; without the folder it
// writes nothing. It prints its table of seven taps in any case.
TEST_F(StereoTest, WarpedPathDumpsTheFirstLabelUnderAnExistingDebugFolder) {
  namespace fs = std::filesystem;
  output_directory = QUILLARA_TEST_TMP "/stereo_dumps";
  fs::remove_all(output_directory);
  const std::vector<uchar4> ref = random_image(W, H, 1);
  ketra::Array<uchar4, 2> r = image(W, H, ref), o = image(W, H, shifted(ref, W, 2));
  ketra::Array<float, 4> costs = volume(W, H, 4);
  auto run = [&] { return add(Kind::ncc_warped, costs, r, o, 1.0f, 0.25f, shift_projection(1.0f)); };
  fs::create_directories(output_directory);
  EXPECT_EQ(run().rfind("gaussian 0.12", 0), 0u);
  EXPECT_FALSE(fs::exists(output_directory + "/debug"));
  fs::create_directories(output_directory + "/debug");
  const std::vector<float> before = download(costs);
  run();
  const std::vector<float> ncc = read_floats(output_directory + "/debug/debug_ncc.dat");
  EXPECT_EQ(ncc, std::vector<float>(before.begin(), before.begin() + W * H));
  EXPECT_NE(ncc, std::vector<float>(W * H, 0.0f));
  const std::vector<float> warped = read_floats(output_directory + "/debug/debug_image_warped.dat");
  ASSERT_EQ(warped.size(), 4u * W * H);
  EXPECT_EQ(warped[3 * W * H + 0], 0.0f);    // column 0 samples beyond the other image at label 0
  EXPECT_EQ(warped[3 * W * H + 5], 255.0f);  // alpha of a warped pixel, bytes as floats
  EXPECT_TRUE(fs::exists(output_directory + "/debug/debug_image_warped_mean.dat"));
}

TEST_F(StereoTest, VolumesThatDoNotFitTheImagesAreRefused) {
  ketra::Array<uchar4, 2> r = array<uchar4>(W, H), small = array<uchar4>(W - 1, H);
  ketra::Array<float, 4> costs = volume(W, H, 3);
  EXPECT_EQ(message_of([&] { add_matching_costs(costs, r, small, 1, 2, 1, 1, 0, 0, shift_projection(0), SAD); }),
            "add_matching_costs: the cost volume (40, 20, 3, 2) does not fit the images (40, 20) and (39, 20)");
  EXPECT_EQ(message_of([&] { add_matching_costs2(costs, small, r, 1, 2, 1, 1, 0, 0, shift_projection(0), NCC); }),
            "add_matching_costs2: the cost volume (40, 20, 3, 2) does not fit the images (39, 20) and (40, 20)");
}
