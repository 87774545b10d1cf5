// Back-face removal on a generated scene: points planted in front of the surfaces and facing away
// from the cameras are counted and removed; the particles of the true surfaces stay.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>

#include "device/vector_math.h"
#include "src/particles/threshold_particles.h"
#include "src/visibility/backface_visibility_test.h"
#include "tests/render/render_test_support.h"

namespace {

constexpr int kViews = 8;

struct Model {
  std::vector<Camera> cameras;
  std::vector<Camera*> camera_ptrs;
  ParticleSet set;
  std::size_t true_count = 0;
};

void append(ParticleSet& to, const ParticleSet& from) {
  to.particles.insert(to.particles.end(), from.particles.begin(), from.particles.end());
  to.offsets.insert(to.offsets.end(), from.offsets.begin(), from.offsets.end());
  to.normals.insert(to.normals.end(), from.normals.begin(), from.normals.end());
}

// All views' particles of a noise-free 8-view ring, then a planted point for every 7th interior
// pixel of view 0: 0.5 units in front of the surface towards the camera, its normal turned away.
Model planted_model() {
  Model m;
  for (int i = 0; i < kViews; ++i) {
    m.cameras.push_back(generated(i).camera);
    append(m.set, particles_of(generated(i)));
  }
  for (Camera& c : m.cameras) m.camera_ptrs.push_back(&c);
  m.true_count = m.set.particles.size();
  const GeneratedView& v = generated(0);
  const ParticleSet own = particles_of(v);
  for (std::size_t i = 0; i < own.particles.size(); i += 7) {
    Particle p = own.particles[i];
    if (!interior(v, p.pixel_index % v.camera.width, p.pixel_index / v.camera.width)) continue;
    p.pos = p.pos + 0.5f * p.dir;  // dir points at the camera centre
    m.set.particles.push_back(p);
    m.set.offsets.push_back(0.0f);
    m.set.normals.push_back(-1.0f * p.dir);
  }
  return m;
}

}  // namespace

TEST(BackfaceVisibility, RemovesPointsFloatingInFrontAndFacingAwayKeepsTheSurfaces) {
  Model m = planted_model();
  const std::size_t planted = m.set.particles.size() - m.true_count;
  ASSERT_GT(planted, 200u);
  std::vector<int> counts;
  const float r1 = footprint(generated(0), 60, 45);  // one pixel at the scene's depth
  backface_visibility_test(counts, m.set.particles, m.set.offsets, m.set.normals, m.camera_ptrs, r1);
  ASSERT_EQ(counts.size(), m.set.particles.size());
  const std::size_t true_offenders =
      std::count_if(counts.begin(), counts.begin() + m.true_count, [](int c) { return c > 1; });
  const std::size_t planted_offenders =
      std::count_if(counts.begin() + m.true_count, counts.end(), [](int c) { return c > 1; });
  const std::size_t planted_seen =
      std::count_if(counts.begin() + m.true_count, counts.end(), [](int c) { return c > 0; });
  // Every planted point offends in its own view; most also in a neighbouring one, the rest lie
  // outside the neighbours' images.
  EXPECT_GE(planted_seen, planted * 99 / 100);
  EXPECT_GE(planted_offenders, planted * 85 / 100);
  EXPECT_LE(true_offenders, m.true_count / 200);

  // counts is added to, and the removal keeps what offends in at most one view.
  std::vector<int> twice = counts;
  backface_visibility_test(twice, m.set.particles, m.set.offsets, m.set.normals, m.camera_ptrs, r1);
  for (std::size_t i = 0; i < counts.size(); i += 101) EXPECT_EQ(twice[i], 2 * counts[i]);
  threshold_particles<int>(counts, m.set.particles, m.set.offsets, m.set.normals, 0, 1);
  std::size_t planted_left = 0;  // the planted points are the ones whose normal turns from their ray
  for (std::size_t i = 0; i < m.set.particles.size(); ++i)
    planted_left += dot(m.set.normals[i], m.set.particles[i].dir) < 0.0f;
  EXPECT_EQ(m.set.particles.size() - planted_left, m.true_count - true_offenders);
  EXPECT_EQ(planted_left, planted - planted_offenders);

  std::vector<int> none;
  const std::vector<Particle> empty;
  backface_visibility_test(none, empty, {}, {}, m.camera_ptrs, r1);
  EXPECT_TRUE(none.empty());
}
