// Visibility on the noise-free 8-view ring of generated views: the views that see each point and
// agree with it, against ray casting, and back-face removal of planted points.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <string>
#include <vector>

#include "device/vector_math.h"
#include "src/particles/threshold_particles.h"
#include "src/visibility/backface_visibility_test.h"
#include "src/visibility/view_agreement.h"
#include "tests/render/render_test_support.h"

namespace {
constexpr int kViews = 8;
constexpr float kPi = std::numbers::pi_v<float>;
const float kCos75 = std::cos(75.0f * kPi / 180.0f);

struct Ring {
  std::vector<Camera> cameras;
  std::vector<Camera*> camera_ptrs;
  ParticleSet set;
};

// Every view's particles of the noise-free 8-view ring, on the true surfaces.
Ring ring() {
  Ring r;
  for (int i = 0; i < kViews; ++i) {
    r.cameras.push_back(generated(i).camera);
    const ParticleSet s = particles_of(generated(i));
    for (std::size_t k = 0; k < s.size(); ++k) r.set.add(s.particles[k], s.offsets[k], s.normals[k]);
  }
  for (Camera& c : r.cameras) r.camera_ptrs.push_back(&c);
  return r;
}

// A planted point for every 7th interior pixel of view 0: `distance` units in front of the surface
// towards the camera, its normal `facing` times its ray (1 towards the camera, -1 away). Returns how
// many.
std::size_t plant_in_front(ParticleSet& set, float distance, float facing) {
  const GeneratedView& v = generated(0);
  const ParticleSet own = particles_of(v);
  std::size_t planted = 0;
  for (std::size_t i = 0; i < own.particles.size(); i += 7) {
    Particle p = own.particles[i];
    if (!interior(v, p.pixel_index % v.camera.width, p.pixel_index / v.camera.width)) continue;
    p.pos = p.pos + distance * p.dir;  // dir points at the camera centre
    set.add(p, 0.0f, facing * p.dir);
    ++planted;
  }
  return planted;
}

bool thin(int shape) {
  const std::string& name = world().shapes[shape].name;
  return name == "sheet" || name.starts_with("rod");
}

// The views other than the particle's own that see its true surface point by ray casting: inside
// the image, not hidden by another surface, and turned less than 75 degrees from it; `expected`
// gets pi times the cosine for each. -1 when the answer is uncertain: the point lies within two
// pixels of an image border or of a silhouette or crease, is hidden by a part that the coarse
// 120 x 90 views cannot sample without holes, or lies near the facing limit.
int views_that_see(const Particle& p, float3 position, float3 normal, float& expected) {
  const scene::Vec3 point{position.x, position.y, position.z};
  int count = 0;
  for (int k = 0; k < kViews; ++k) {
    if (k == p.camera_index) continue;
    const GeneratedView& v = generated(k);
    const scene::Vec3 c = v.truth.R * point + v.truth.t;
    if (c.z <= 0) continue;
    const double x = v.truth.fx * c.x / c.z + v.truth.cx, y = v.truth.fy * c.y / c.z + v.truth.cy;
    if (x < -1.5 || y < -1.5 || x > v.truth.width + 0.5 || y > v.truth.height + 0.5) continue;
    if (x < 1.5 || y < 1.5 || x > v.truth.width - 2.5 || y > v.truth.height - 2.5) return -1;
    const scene::Vec3 ray = point - v.truth.center;
    const scene::Hit hit = scene::cast_ray(world(), v.truth.center, ray);
    const bool hidden = hit.found && (1.0 - hit.t) * scene::length(ray) > 0.02;
    if (hidden && thin(hit.shape)) return -1;
    if (hidden) continue;
    const int px = static_cast<int>(std::lround(x)), py = static_cast<int>(std::lround(y));
    for (int dy = -2; dy <= 2; ++dy)
      for (int dx = -2; dx <= 2; ++dx)
        if (!interior(v, std::clamp(px + dx, 0, v.truth.width - 1), std::clamp(py + dy, 0, v.truth.height - 1)))
          return -1;
    const float3 centre = {v.camera.center[0], v.camera.center[1], v.camera.center[2]};
    const float cosine = dot(normal, centre - position) / length(centre - position);
    if (std::fabs(cosine - kCos75) < 0.02f) return -1;
    if (cosine < kCos75) continue;
    ++count;
    expected += kPi * cosine;
  }
  return count;
}

}  // namespace

// The views' own surfaces find about the views ray casting finds, and on the noise-free surfaces
// every view that sees a point agrees with it, each weighing pi times its cosine. A point hidden
// behind a silhouette within a pixel meets the surface beside it among the 3 x 3 pixels and counts
// as seen: at 120 x 90 pixels that adds a view for about a tenth of the points, so single views
// differ, mostly by one, and the sum runs about a tenth high. An oblique view's reach along the
// surface (up to 11.5 footprints, about 0.3 units at 120 x 90) lets some more hidden
// points meet the surface beside them, so about half of the points get exactly the views ray
// casting finds. Points planted in front of the surface are contradicted by the views that see
// through them and confirmed by hardly any.
TEST(ViewAgreement, ViewsSeeAndAgreeAsRayCastingSaysAndContradictFloatingPoints) {
  Ring r = ring();
  const std::size_t true_count = r.set.particles.size();
  const std::size_t planted = plant_in_front(r.set, 0.3f, 1.0f);
  ASSERT_GT(planted, 100u);
  const ViewVerdicts verdicts = judge_by_views(r.set.particles, r.set.offsets, r.set.normals, r.camera_ptrs,
                                               view_covers(r.set.particles, r.set.offsets, r.camera_ptrs), kPi, kCos75);
  ASSERT_EQ(verdicts.seeing.size(), r.set.particles.size());
  std::size_t checked = 0, agreed = 0, far_off = 0, all_agree = 0, by_count[kViews] = {};
  double truth_expected = 0, found_expected = 0;
  for (std::size_t i = 0; i < true_count; ++i) {
    const Particle& p = r.set.particles[i];
    const float3 position = p.pos + r.set.offsets[i] * p.dir;
    float expected = 0.0f;
    const int truth = views_that_see(p, position, r.set.normals[i], expected);
    if (truth < 0) continue;
    truth_expected += expected;
    found_expected += verdicts.seeing[i];
    ++checked;
    ++by_count[truth];
    agreed += verdicts.seeing_views[i] == truth;
    far_off += std::abs(verdicts.seeing_views[i] - truth) > 1;
    all_agree += verdicts.agreeing_views[i] == verdicts.seeing_views[i];
    EXPECT_LE(verdicts.agreeing[i], verdicts.seeing[i]);
    EXPECT_LE(verdicts.seeing[i], kPi * static_cast<float>(verdicts.seeing_views[i]) + 1e-4f);
    EXPECT_GE(verdicts.seeing[i], kPi * kCos75 * static_cast<float>(verdicts.seeing_views[i]) - 1e-4f);
  }
  ASSERT_GT(checked, 1000u);
  // Points seen by no other view, by one, and by several all occur.
  EXPECT_GT(by_count[0], 20u);
  EXPECT_GT(by_count[1], 50u);
  EXPECT_GT(by_count[3], 100u);
  EXPECT_GE(agreed, checked * 9 / 20) << agreed << " of " << checked;
  EXPECT_LE(far_off, checked / 8);
  EXPECT_NEAR(found_expected / truth_expected, 1.1, 0.05);
  EXPECT_GE(all_agree, checked * 97 / 100);

  std::size_t contradicted = 0, confirmed = 0;
  for (std::size_t i = true_count; i < r.set.particles.size(); ++i) {
    contradicted += verdicts.seeing_views[i] > 0;
    confirmed += verdicts.agreeing_views[i] > 0;
  }
  EXPECT_GE(contradicted, planted * 3 / 4);
  EXPECT_LE(confirmed, planted / 100);

}

// A particle covers the pixels within its footprint around where it lands in its own view, the
// nearest particle taking a pixel; a pixel-level particle covers just its pixel, the particles of
// other views nothing.
TEST(ViewAgreement, ParticlesCoverTheirFootprintsInTheirOwnView) {
  Camera camera = pinhole(20, 16, 10.0f);
  camera.index = 3;
  std::vector<Camera*> cameras = {&camera};
  const auto particle_at = [](int x, int y, float depth, float footprint_pixels, int view) {
    // Array pixel (x, y) of the pinhole camera at the origin, mirrored as the views are.
    return cloud::particle(make_float3((19.0f - x - 9.5f) / 10.0f * depth, (15.0f - y - 7.5f) / 10.0f * depth, depth),
                           make_float3(0.0f, 0.0f, -1.0f), view, footprint_pixels * depth / 10.0f);
  };
  const std::vector<Particle> particles = {particle_at(5, 5, 2.0f, 3.0f, 3), particle_at(8, 5, 4.0f, 3.0f, 3),
                                           particle_at(15, 12, 1.0f, 1.0f, 3), particle_at(2, 12, 1.0f, 3.0f, 0)};
  const std::vector<float> offsets(particles.size(), 0.0f);
  const ViewCover cover = view_covers(particles, offsets, cameras)[0];
  ASSERT_EQ(cover.particle.size(), 20u * 16u);
  const auto owner = [&](int x, int y) { return cover.particle[y * 20 + x]; };
  EXPECT_EQ(owner(5, 5), 0);
  EXPECT_EQ(owner(5, 8), 0);  // three pixels away
  EXPECT_EQ(owner(5, 9), -1);
  EXPECT_EQ(owner(7, 5), 1);  // nearer to the second
  EXPECT_EQ(owner(6, 5), 0);
  EXPECT_EQ(owner(15, 12), 2);
  EXPECT_EQ(owner(16, 12), 2);  // at its footprint of one pixel
  EXPECT_EQ(owner(16, 13), -1);
  EXPECT_EQ(owner(2, 12), -1);  // another view's particle
}

// A view that sees a surface at 78 degrees samples it about five footprints apart along the slant:
// a point on the surface between two of its pixels still meets the view's surface there, while a
// point ten footprints in front of it (farther than the view's neighbouring pixels reach) is seen
// through, and one behind it is hidden.
TEST(ViewAgreement, ObliqueViewAgreesBetweenItsPixelsAndStillSeesThroughPointsInFront) {
  constexpr int W = 40, H = 30;
  constexpr float f = 200.0f;  // a narrow view, so that the plane stays in front of it
  Camera camera = pinhole(W, H, f);
  camera.index = 1;
  std::vector<Camera*> cameras = {&camera};
  const float slant = 78.0f * kPi / 180.0f;
  const float3 n = make_float3(std::sin(slant), 0.0f, -std::cos(slant));  // faces the camera at the centre
  const float3 anchor = make_float3(0.0f, 0.0f, 2.0f);
  // The point of the plane on the ray through array pixel coordinates (x, y), mirrored as the views are.
  const auto on_plane = [&](float x, float y) {
    const float3 ray = make_float3((W - 1 - x - camera.K[6]) / f, (H - 1 - y - camera.K[7]) / f, 1.0f);
    return (dot(n, anchor) / dot(n, ray)) * ray;
  };
  ParticleSet s;
  const auto add = [&](float3 position, int view) {
    s.add(cloud::particle(position, -1.0f * position / length(position), view, position.z / f), 0.0f, n);
  };
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) add(on_plane(x, y), 1);
  const float3 between = on_plane(20.5f, 15.0f);
  const float footprint = between.z / f;
  add(between, 0);
  const float3 towards_camera = s.particles.back().dir;
  add(between + 10.0f * footprint * towards_camera, 0);
  add(between - 10.0f * footprint * towards_camera, 0);
  const ViewVerdicts v = judge_by_views(s.particles, s.offsets, s.normals, cameras,
                                        view_covers(s.particles, s.offsets, cameras), kPi, std::cos(80.0f * kPi / 180.0f));
  const std::size_t on = W * H, in_front = on + 1, behind = on + 2;
  EXPECT_EQ(v.agreeing_views[on], 1);
  EXPECT_NEAR(v.agreeing[on], kPi * std::cos(slant), 0.05f);
  EXPECT_EQ(v.seeing_views[in_front], 1);
  EXPECT_EQ(v.agreeing_views[in_front], 0);
  EXPECT_EQ(v.seeing_views[behind], 0);
}

TEST(BackfaceVisibility, RemovesPointsFloatingInFrontAndFacingAwayKeepsTheSurfaces) {
  Ring m = ring();
  const std::size_t true_count = m.set.particles.size(), planted = plant_in_front(m.set, 0.5f, -1.0f);
  ASSERT_GT(planted, 200u);
  std::vector<int> counts;
  const float r1 = footprint(generated(0), 60, 45);  // one pixel at the scene's depth
  backface_visibility_test(counts, m.set.particles, m.set.offsets, m.set.normals, m.camera_ptrs, r1);
  ASSERT_EQ(counts.size(), m.set.particles.size());
  const std::size_t true_offenders =
      std::count_if(counts.begin(), counts.begin() + true_count, [](int c) { return c > 1; });
  const std::size_t planted_offenders =
      std::count_if(counts.begin() + true_count, counts.end(), [](int c) { return c > 1; });
  const std::size_t planted_seen =
      std::count_if(counts.begin() + true_count, counts.end(), [](int c) { return c > 0; });
  // Every planted point offends in its own view; most also in a neighbouring one, the rest lie
  // outside the neighbours' images.
  EXPECT_GE(planted_seen, planted * 99 / 100);
  EXPECT_GE(planted_offenders, planted * 85 / 100);
  EXPECT_LE(true_offenders, true_count / 200);

  // counts is added to, and the removal keeps what offends in at most one view.
  std::vector<int> twice = counts;
  backface_visibility_test(twice, m.set.particles, m.set.offsets, m.set.normals, m.camera_ptrs, r1);
  for (std::size_t i = 0; i < counts.size(); i += 101) EXPECT_EQ(twice[i], 2 * counts[i]);
  threshold_particles<int>(counts, m.set.particles, m.set.offsets, m.set.normals, 0, 1);
  std::size_t planted_left = 0;  // the planted points are the ones whose normal turns from their ray
  for (std::size_t i = 0; i < m.set.particles.size(); ++i)
    planted_left += dot(m.set.normals[i], m.set.particles[i].dir) < 0.0f;
  EXPECT_EQ(m.set.particles.size() - planted_left, true_count - true_offenders);
  EXPECT_EQ(planted_left, planted - planted_offenders);
}
