#include <gtest/gtest.h>
#include <omp.h>

#include <cmath>
#include <cstring>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/check_verdict.h"
#include "tests/support/particle_cloud.h"
#include "ketra/timer.h"
#include "src/filter/filter_particles.h"
#include "src/core/settings.h"

namespace {

// The printed lines of a run without the timer table, whose figures vary.
std::string run_and_capture(cloud::ParticleSet& set, int exact, int gradient, float radius = 0.1f) {
  FilterOptions options;
  options.radius = radius;
  options.schedule = {exact, gradient, 5};
  testing::internal::CaptureStdout();
  filter_particles(set.particles, set.offsets, set.normals, options);
  ketra::timer::clear();  // the timer table is program-wide; release its events between runs
  std::istringstream lines(testing::internal::GetCapturedStdout());
  std::string kept, line;
  while (std::getline(lines, line))
    if (line.find(" msec") == std::string::npos && line.find(" sec") == std::string::npos) kept += line + "\n";
  return kept;
}

// Four particles, each alone in its 27 cells: nothing moves, so no step finds new ground.
cloud::ParticleSet isolated_particles() {
  cloud::ParticleSet set;
  for (int k = 0; k < 4; ++k)
    set.particles.push_back(cloud::particle({float(k), 0, 0}, cloud::normalized({0.1f, 0.2f, 1.0f})));
  return set;
}

std::string header(int iteration) {
  return "====================  iteration " + std::to_string(iteration) + "  ====================\n";
}

const std::string exact_step = "  computing normals\n  updating particle density\n  updating particle positions\n";
const std::string gradient_step = "  updating particle density\n  updating particle positions (gradient descent)\n";
const std::string closing_step = "  computing normals\n  updating particle positions\n";
const std::string statistics = "average cell length 1\n    max cell length 1\n";

// Mean and root-mean-square height above `level` of the particles of cameras [camera_from, camera_to).
std::pair<float, float> heights(const cloud::ParticleSet& set, float level, int camera_from = 0,
                                int camera_to = 1 << 30) {
  double sum = 0.0, squares = 0.0;
  int count = 0;
  for (size_t i = 0; i < set.size(); ++i) {
    const Particle& p = set.particles[i];
    if (p.camera_index < camera_from || p.camera_index >= camera_to) continue;
    const double z = p.pos.z + set.offsets[i] * p.dir.z - level;
    sum += z;
    squares += z * z;
    ++count;
  }
  return {static_cast<float>(sum / count), static_cast<float>(std::sqrt(squares / count))};
}

}  // namespace

TEST(FilterParticles, SchedulesOfAStillSet) {
  // Phase 1 relaxes by 0.8 after every step without new ground and ends at the tenth reduction;
  // phase 2 starts two numbers on and ends after its first step; phase 3 has no header.
  cloud::ParticleSet set = isolated_particles();
  const int lumvik_before = debug_lumvik_particle_iteration;
  std::string expected = statistics;
  for (int k = 1; k <= 10; ++k) expected += header(k) + exact_step;
  expected += header(12) + gradient_step + closing_step;
  EXPECT_EQ(run_and_capture(set, 50, 50), expected);
  EXPECT_EQ(debug_lumvik_particle_iteration, lumvik_before + 11);
  EXPECT_EQ(set.offsets, std::vector<float>(4, 0.0f));
  ASSERT_EQ(set.normals.size(), 4u);
  // Filled from init_normal; the gradient step rebuilds it from its angles, which may move the last bit.
  EXPECT_NEAR(dot(set.normals[2], set.particles[2].init_normal), 1.0f, 1e-6f);

  // Without exact or without gradient steps.
  set = isolated_particles();
  EXPECT_EQ(run_and_capture(set, 0, 3), statistics + header(2) + gradient_step + closing_step);
  set = isolated_particles();
  EXPECT_EQ(run_and_capture(set, 2, 0), statistics + header(1) + exact_step + header(2) + exact_step + closing_step);
}

TEST(FilterParticles, BitIdenticalForAnyThreadCount) {
  const cloud::ParticleSet input = cloud::plane_views(3, 48, 36, 40.0f, 2.0f, 1.5f, 0.01f, 21, 1.0f);
  std::vector<cloud::ParticleSet> outputs;
  for (int threads : {1, 2, 4}) {
    omp_set_num_threads(threads);
    cloud::ParticleSet set = input;
    run_and_capture(set, 2, 4, 0.15f);
    outputs.push_back(set);
  }
  omp_set_num_threads(omp_get_num_procs());
  for (size_t k = 1; k < outputs.size(); ++k) {
    ASSERT_EQ(outputs[k].size(), outputs[0].size());
    EXPECT_EQ(std::memcmp(outputs[k].offsets.data(), outputs[0].offsets.data(), outputs[0].size() * sizeof(float)), 0);
    EXPECT_EQ(std::memcmp(outputs[k].normals.data(), outputs[0].normals.data(), outputs[0].size() * sizeof(float3)), 0);
    for (size_t i = 0; i < outputs[0].size(); ++i) ASSERT_EQ(outputs[k].particles[i].pixel_index, outputs[0].particles[i].pixel_index);
  }
  // Something happened: the run moved particles.
  int moved = 0;
  for (float t : outputs[0].offsets) moved += t != 0.0f;
  EXPECT_GT(moved, static_cast<int>(outputs[0].size()) / 2);
}

TEST(FilterParticles, NoisyPlaneComesOutFlatter) {
  // Four views of the plane z = 0 from a height of 2, depth noise 0.5 %; radius about 5 pixels.
  cloud::ParticleSet set = cloud::plane_views(4, 40, 40, 40.0f, 2.0f, 0.8f, 0.005f, 5, 0.6f);
  const float before = heights(set, 0.0f).second;
  run_and_capture(set, 2, 10, 0.25f);
  const float after = heights(set, 0.0f).second;
  EXPECT_LT(after, 0.8f * before) << "rms before " << before << ", after " << after;
  for (size_t i = 0; i < set.size(); ++i) EXPECT_GT(dot(set.normals[i], set.particles[i].dir), 0.0f);
}

TEST(FilterParticles, CloseOppositeSheetsStayApart) {
  // Sheet A at z = 0 seen from above, sheet B at z = -0.06 seen from below: closer than the radius
  // of 0.25, with opposite normals. The collision term keeps them from merging.
  cloud::ParticleSet set;
  const float gap = 0.06f;
  cloud::Scene top;
  top.plane_half = 0.5f;
  cloud::Scene bottom = top;
  bottom.plane_z = -gap;
  for (int v = 0; v < 2; ++v) {
    const float x = v == 0 ? -0.3f : 0.3f;
    cloud::add_view(set, top, {{x, 0.1f, 2.0f}, {0, 0, 0}, 32, 32, 40.0f}, v, 0.003f, 3);
    cloud::add_view(set, bottom, {{x, -0.1f, -2.0f - gap}, {0, 0, -gap}, 32, 32, 40.0f}, 2 + v, 0.003f, 3);
  }
  run_and_capture(set, 2, 10, 0.25f);
  const auto [a, a_rms] = heights(set, 0.0f, 0, 2);
  const auto [b, b_rms] = heights(set, -gap, 2, 4);
  EXPECT_GT(a - (b - gap), 0.7f * gap) << "sheets at " << a << " and " << b - gap;
  EXPECT_LT(a_rms, 0.5f * gap);
  EXPECT_LT(b_rms, 0.5f * gap);
}

// Each setting a run cannot work with is named; both zero iteration counts would leave the closing
// step a density never computed.
TEST(FilterParticles, OptionsCheckNamesWhatARunCannotWorkWith) {
  FilterOptions fine;
  fine.radius = 0.01f;
  const auto with = [&](auto change) { return check_verdict(fine, change); };
  const std::string problem = "FilterOptions: ";
  EXPECT_EQ(with([](FilterOptions& o) { o.schedule = kSuperpixelSchedule; }), "accepted");
  EXPECT_EQ(with([](FilterOptions& o) { o.alpha = -1.0f; }), problem + "alpha must be finite and not negative, got -1");
  for (float radius : {0.0f, 1e7f})
    EXPECT_TRUE(with([&](FilterOptions& o) { o.radius = radius; })
                    .starts_with(problem + "radius must be one whose 32-bit kernel can be computed, got "));
  EXPECT_EQ(with([](FilterOptions& o) { o.schedule = {0, 0, 5}; }),
            problem + "exact_iterations + gradient_iterations must be above 0, got 0");
  EXPECT_EQ(with([](FilterOptions& o) { o.schedule.cell_samples = 0; }),
            problem + "cell_samples must be 1 or more, got 0");
}
