// Semi-global matching: path costs of all 32 directions against a brute-force dynamic programme,
// the cost fix, label extraction with its ties and refinement, and the whole operator.

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>

#include "src/stereo/depthmap_estimation_kernels.h"
#include "src/stereo/sgm.h"
#include "src/stereo/sgm_minima.h"
#include "tests/stereo/stereo_test_support.h"

using namespace depthmap_estimation_kernels;

namespace {

// Costs C(l, x, y) at index (y * W + x) * L + l.
std::vector<float> random_costs(int L, int W, int H, uint32_t seed) {
  std::vector<float> c(static_cast<std::size_t>(L) * W * H);
  for (float& v : c) v = static_cast<float>((seed = seed * 1664525u + 1013904223u) >> 8) / 16777216.0f;
  return c;
}

// Path sums of one direction by the plain rule: walkers along the major axis, the minor offset
// rounded from i * |minor| / |major|, a new path at step 0 and wherever the line wraps, the axis
// walkers' first pixel visited twice.
std::vector<float> brute_force_paths(std::vector<float> const& C, int L, int W, int H, int dx, int dy, float P1,
                                     std::function<float(int, int)> const& P2) {
  std::vector<float> S(C.size(), 0.0f);
  const bool major_x = std::abs(dx) >= std::abs(dy);
  const int N = major_x ? W : H, M = major_x ? H : W;
  const int dmaj = major_x ? dx : dy, dmin = major_x ? dy : dx;
  for (int start = 0; start < M; ++start) {
    std::vector<float> prev(L);
    long block = 0;
    for (int i = 0; i < N; ++i) {
      const int major = dmaj > 0 ? i : N - 1 - i;
      const long u = start + (dmin >= 0 ? 1 : -1) * static_cast<long>(std::floor(i * std::abs(dmin) / double(std::abs(dmaj)) + 0.5));
      const long this_block = static_cast<long>(std::floor(static_cast<double>(u) / M));
      const int minor = static_cast<int>(u - this_block * M);
      const int x = major_x ? major : minor, y = major_x ? minor : major;
      const float* c = &C[(static_cast<std::size_t>(y) * W + x) * L];
      float* s = &S[(static_cast<std::size_t>(y) * W + x) * L];
      auto recurrence = [&] {
        const float m = *std::min_element(prev.begin(), prev.end());
        std::vector<float> lr(L);
        for (int l = 0; l < L; ++l) {
          float best = std::min(prev[l], m + P2(x, y));
          if (l > 0) best = std::min(best, prev[l - 1] + P1);
          if (l + 1 < L) best = std::min(best, prev[l + 1] + P1);
          lr[l] = c[l] + best - m;
          s[l] += lr[l];
        }
        prev = lr;
      };
      if (i == 0 || this_block != block) {
        for (int l = 0; l < L; ++l) prev[l] = c[l], s[l] += c[l];
        block = this_block;
        if (dmin == 0 && i == 0) recurrence();
        continue;
      }
      recurrence();
    }
  }
  return S;
}

}  // namespace

class SgmTest : public StereoTest {
 protected:
  // C with extents (L, W, H) from host values, and a zeroed S of the same extents.
  ketra::Array<float, 3> cube(int L, int W, int H, std::vector<float> const& values = {}) {
    ketra::Array<float, 3> a = array<float, 3>(L, W, H);
    upload(a, values.empty() ? std::vector<float>(static_cast<std::size_t>(L) * W * H, 0.0f) : values);
    return a;
  }
  template <bool Map, int dx, int dy>
  std::vector<float> paths(std::vector<float> const& C, int L, int W, int H, float P1, float P2) {
    ketra::Array<float, 3> c = cube(L, W, H, C), s = cube(L, W, H);
    const bool major_x = std::abs(dx) >= std::abs(dy);
    sgm_path_kernel<Map, dx, dy>({device::Dim3(1, device::blocksFor(major_x ? H : W, 4)), device::Dim3(32, 4)}, c, s,
                                 P1, P2, nullptr);
    return download(s);
  }
  ketra::Array<float, 2> map(int W, int H, std::vector<float> const& values) {
    ketra::Array<float, 2> m = array<float>(W, H);
    upload(m, values);
    return m;
  }
};

// Path sums of all 32 directions against the brute-force programme on random costs, with a label
// count that is not a multiple of the vector width; an axis, a direction with major axis x and one
// with major axis y also with the penalty map, read at the current pixel. With one row a diagonal
// walker starts a new path at every step, so S is C itself.
TEST_F(SgmTest, PathSumsMatchABruteForceProgramme) {
  constexpr int L = 21, W = 11, H = 7;
  const std::vector<float> C = random_costs(L, W, H, 5);
  std::vector<float> penalty(W * H);
  for (int i = 0; i < W * H; ++i) penalty[i] = 0.05f + 0.01f * static_cast<float>(i % 13);
  const auto scalar = [](int, int) { return 0.3f; };
#define PATHS(dx, dy) \
  EXPECT_EQ((paths<false, dx, dy>(C, L, W, H, 0.1f, 0.3f)), brute_force_paths(C, L, W, H, dx, dy, 0.1f, scalar)) \
      << dx << ", " << dy;
  PATHS(1, 0) PATHS(-1, 0) PATHS(0, 1) PATHS(0, -1) PATHS(1, 1) PATHS(-1, 1) PATHS(-1, -1) PATHS(1, -1)
  PATHS(2, 1) PATHS(2, -1) PATHS(-2, 1) PATHS(-2, -1) PATHS(1, 2) PATHS(-1, 2) PATHS(1, -2) PATHS(-1, -2)
  PATHS(4, 1) PATHS(4, 3) PATHS(4, -1) PATHS(4, -3) PATHS(-4, 1) PATHS(-4, 3) PATHS(-4, -1) PATHS(-4, -3)
  PATHS(1, 4) PATHS(3, 4) PATHS(-1, 4) PATHS(-3, 4) PATHS(1, -4) PATHS(3, -4) PATHS(-1, -4) PATHS(-3, -4)
#undef PATHS

  ketra::Array<float, 2> m = map(W, H, penalty);
  P2_tex.filter = device::FilterMode::Point;
  std::size_t offset = 1;
  device::bindTexture2D(&offset, P2_tex, m.data, W, H, m.pitch.y);
  const auto from_map = [&](int x, int y) { return penalty[y * W + x]; };
#define MAPPED(dx, dy) \
  EXPECT_EQ((paths<true, dx, dy>(C, L, W, H, 0.1f, 99.0f)), brute_force_paths(C, L, W, H, dx, dy, 0.1f, from_map));
  MAPPED(-1, -2) MAPPED(0, -1) MAPPED(-4, 3)
#undef MAPPED
  device::unbindTexture(P2_tex);

  const std::vector<float> row = random_costs(L, 6, 1, 8);
  EXPECT_EQ((paths<false, 1, 1>(row, L, 6, 1, 0.1f, 0.3f)), row);
}

// Cells that are infinite or not-a-number cost 1000; the others stay.
TEST_F(SgmTest, CellsWithoutDataCostAThousand) {
  const std::vector<float> values{NAN, INFINITY, -INFINITY, 5.0f, -2.0f, FLT_MAX, 0.0f, 1e-30f};
  ketra::Array<float, 3> c = cube(2, 1, 4, values);
  sgm_fix_matching_costs2<4, 1>({device::Dim3(1, 1, 4), device::Dim3(32, 4)}, c);
  EXPECT_EQ(download(c), (std::vector<float>{1000, 1000, 1000, 5, -2, FLT_MAX, 0, 1e-30f}));
}

// The smallest sum wins; of two equal minima the one in the lower lane (label mod 32), so label
// 33 beats label 2. The two ends give integer labels; elsewhere the parabola's vertex refines.
TEST_F(SgmTest, ExtractionPrefersTheLowerLaneAndRefinesByAParabola) {
  constexpr int L = 40, W = 5;
  std::vector<float> S(L * W, 50.0f);
  auto at = [&](int x, int l) -> float& { return S[x * L + l]; };
  at(0, 0) = 1.0f, at(0, 1) = 1.5f;
  at(1, L - 1) = 1.0f, at(1, L - 2) = 1.5f;
  at(2, 2) = at(2, 33) = 1.0f, at(2, 32) = at(2, 34) = 3.0f;
  for (int l = 0; l < L; ++l) at(3, l) = (l - 10.3f) * (l - 10.3f);
  at(4, 20) = 2.0f, at(4, 21) = 2.0f, at(4, 19) = 4.0f;  // equal neighbours in one lane pair: the first
  ketra::Array<float, 3> s = cube(L, W, 1, S);
  ketra::Array<float, 2> labels = array<float>(W, 1);
  sgm_extract_labels<4>(render_launch::pixel_shape(W, 1), labels, s);
  const std::vector<float> got = download(labels);
  EXPECT_EQ(got[0], 0.0f);
  EXPECT_EQ(got[1], static_cast<float>(L - 1));
  EXPECT_NEAR(got[2], 33.0f, 1e-3f);
  EXPECT_NEAR(got[3], 10.3f, 1e-3f);
  EXPECT_NEAR(got[4], 20.0f + (4.0f - 2.0f) / (2.0f * (4.0f - 4.0f + 2.0f)), 1e-3f);  // 20.5
}

// How distinct the best label is: the smallest sum and the lowest other valley at least two labels
// from it. The best label's shoulders and a monotone curve have no second valley; a valley at an
// end of the curve counts, and of several (a flat stretch is one at every label) the lowest wins.
TEST_F(SgmTest, PathMinimaGiveTheBestAndTheSecondValley) {
  constexpr int L = 12, W = 4;
  std::vector<float> S(L * W);
  auto at = [&](int x, int l) -> float& { return S[x * L + l]; };
  for (int l = 0; l < L; ++l) {
    at(0, l) = std::fabs(l - 3.0f) + (l > 7 ? 10.0f - 2.0f * (l - 7) : 0.0f);  // valleys at 3 and at 11
    at(1, l) = static_cast<float>(l);                                          // best at 0, no other
    at(2, l) = std::fabs(l - 6.0f);                                            // one valley
    at(3, l) = l == 5 ? 1.0f : (l == 4 || l == 6 ? 1.5f : 4.0f);               // shoulders, then flat
  }
  at(3, 0) = 3.0f;  // a valley at the start, below the flat stretch
  ketra::Array<float, 3> s = cube(L, W, 1, S);
  ketra::Array<float, 3> minima = array<float, 3>(W, 1, 2);
  sgm_path_minima(minima, s);
  const std::vector<float> got = download(minima);  // (x, 0, k) at k * W + x
  EXPECT_EQ(std::vector<float>(got.begin(), got.begin() + W), (std::vector<float>{0.0f, 0.0f, 0.0f, 1.0f}));
  EXPECT_EQ(got[W + 0], at(0, 11));
  EXPECT_EQ(got[W + 1], FLT_MAX);
  EXPECT_EQ(got[W + 2], FLT_MAX);
  EXPECT_EQ(got[W + 3], 3.0f);
}

class SgmOperatorTest : public SgmTest {
 protected:
  static constexpr int W = 23, H = 13, L = 37;
  std::vector<float> run(std::vector<float> const& costs, int num_paths, bool single_stream,
                         ketra::Array<float, 2> const& P2_map = {}) {
    ketra::Array<float, 3> c = array<float, 3>(W, H, L);
    upload(c, costs);
    ketra::Array<float, 2> labels = array<float>(W, H);
    sgm(labels, c, 0.05f, 0.4f, P2_map, num_paths, single_stream);
    const std::vector<float> after = download(c);  // the input stays as it was, bit for bit
    EXPECT_EQ(std::memcmp(after.data(), costs.data(), costs.size() * sizeof(float)), 0);
    return download(labels);
  }
};

// num_paths below 8 runs the four axes, 8 to 15 adds the diagonals, and so on. Two streams give
// the labels of one stream up to the rounding of the sums. A map that holds P2 everywhere is the
// scalar P2.
TEST_F(SgmOperatorTest, PathGroupsStreamsAndPenaltyMap) {
  std::vector<float> costs = random_costs(1, W * H * L, 1, 3);
  for (int i = 0; i < W * H * L; i += 17) costs[i] = NAN;
  const std::vector<float> four = run(costs, 4, true);
  for (int n : {-3, 0, 7}) EXPECT_EQ(run(costs, n, true), four) << n;
  const std::vector<float> eight = run(costs, 8, true), sixteen = run(costs, 16, true), all = run(costs, 32, true);
  EXPECT_NE(eight, four);
  EXPECT_NE(sixteen, eight);
  EXPECT_NE(all, sixteen);
  EXPECT_EQ(run(costs, 15, true), eight);
  for (int n : {4, 32}) {
    const std::vector<float> one = run(costs, n, true), two = run(costs, n, false);
    for (int p = 0; p < W * H; ++p) ASSERT_NEAR(two[p], one[p], 1e-3f) << n << ": " << p;
  }
  ketra::Array<float, 2> flat = map(W, H, std::vector<float>(W * H, 0.4f));
  EXPECT_EQ(run(costs, 8, true, flat), eight);
  for (float l : all) {
    EXPECT_GE(l, 0.0f);
    EXPECT_LT(l, static_cast<float>(L));
  }
}

// With debug_depthmap set, the path sums (as (W, H, L)) and their first smallest labels by a plain
// scan go under the debug folder.
TEST_F(SgmOperatorTest, DebugDumpsThePathSumsAndTheirIntegerLabels) {
  namespace fs = std::filesystem;
  output_directory = QUILLARA_TEST_TMP "/sgm_dumps";
  fs::remove_all(output_directory);
  fs::create_directories(output_directory + "/debug");
  debug_depthmap = true;
  std::vector<float> costs(W * H * L, 1.0f);
  for (int p = 0; p < W * H; ++p) costs[2 * W * H + p] = costs[33 * W * H + p] = 0.0f;  // ties of labels 2 and 33
  testing::internal::CaptureStdout();
  run(costs, 4, true);
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_NE(printed.find("written to " + output_directory + "/debug/debug_path_costs.dat"), std::string::npos);
  EXPECT_EQ(read_floats(output_directory + "/debug/debug_depthmap.dat"), std::vector<float>(W * H, 2.0f));
  EXPECT_EQ(fs::file_size(output_directory + "/debug/debug_path_costs.dat"), 4u * W * H * L);
}

TEST_F(SgmOperatorTest, LabelsAndMapMustFitTheVolume) {
  ketra::Array<float, 3> c = array<float, 3>(W, H, L);
  ketra::Array<float, 2> labels = array<float>(W, H + 1), good = array<float>(W, H), wide = array<float>(W + 1, H);
  EXPECT_EQ(message_of([&] { sgm(labels, c, 1, 2, {}, 4, true); }),
            "sgm: labels (23, 14) does not fit the cost volume (23, 13, 37)");
  EXPECT_EQ(message_of([&] { sgm(good, c, 1, 2, wide, 4, true); }),
            "sgm: P2_map (24, 13) does not fit the cost volume (23, 13, 37)");
}
