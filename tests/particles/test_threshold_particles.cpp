#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "src/particles/threshold_particles.h"

namespace {

struct Set {
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
};

// Particle i carries i in every array, so the survivors' order is visible in each of them.
Set numbered(int n) {
  Set s;
  for (int i = 0; i < n; ++i) {
    Particle p{};
    p.pixel_index = i;
    s.particles.push_back(p);
    s.offsets.push_back(float(i));
    s.normals.push_back({float(i), 0.0f, 0.0f});
  }
  return s;
}

std::vector<int> order(const Set& s) {
  std::vector<int> ids;
  for (size_t k = 0; k < s.particles.size(); ++k) {
    EXPECT_EQ(s.offsets[k], float(s.particles[k].pixel_index));
    EXPECT_EQ(s.normals[k].x, float(s.particles[k].pixel_index));
    ids.push_back(s.particles[k].pixel_index);
  }
  return ids;
}

}  // namespace

// Bounds are inclusive and NaN goes; each hole is filled by the last survivor not yet moved.
TEST(ThresholdParticles, HolesAreFilledByTheLastSurvivors) {
  Set s = numbered(5);
  std::vector<int> values{0, 5, 0, 5, 0};
  threshold_particles<int>(values, s.particles, s.offsets, s.normals, 0, 1);
  EXPECT_EQ(order(s), (std::vector<int>{0, 4, 2}));
  EXPECT_EQ(values, (std::vector<int>{0, 5, 0, 5, 0}));

  s = numbered(6);
  std::vector<float> floats{NAN, 3.0f, 0.5f, 4.0f, 1.0f, INFINITY};
  threshold_particles<float>(floats, s.particles, s.offsets, s.normals, 1.0f, 3.0f);
  EXPECT_EQ(order(s), (std::vector<int>{4, 1}));

  floats = {7.0f, 8.0f};
  threshold_particles<float>(floats, s.particles, s.offsets, s.normals, 0.0f, 1.0f);
  EXPECT_TRUE(s.particles.empty() && s.offsets.empty() && s.normals.empty());
}
