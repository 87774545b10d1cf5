// Depth-map refinement on generated views: what it is for, and its handling of views and pixels
// that have too little to go on.

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <iostream>
#include <vector>

#include "src/refine/refine_depthmaps.h"
#include "src/render/depth_from_points.h"
#include "src/render/render_points.h"
#include "tests/render/render_test_support.h"
#include "tests/support/io_test_support.h"

namespace {

// Five neighbouring views of a ring of 12 around the default scene: 30 degrees apart, so the
// optical axes of views up to two apart lie within 60 degrees, and the middle three views have
// at least 3 neighbours.
constexpr int view_count = 5;
const scene::CameraRing ring{12, 160, 120, 3.0, 3.5, -2.0};

struct Refined {
  std::vector<CMatrix<float>> improved, particle;
};

class RefineDepthmapsTest : public RenderTest {
 protected:
  std::vector<GeneratedView> views;
  std::vector<Camera> cameras;
  std::vector<Camera*> ptrs;

  void make_views(int count, double noise) {
    for (int i = 0; i < count; ++i) views.push_back(make_generated_view(ring, i, noise, 7));
    for (const GeneratedView& v : views) cameras.push_back(v.camera);
    for (Camera& c : cameras) ptrs.push_back(&c);
  }

  // The radius the program refines with: 4 pixels at the average depth.
  float radius() const {
    double sum = 0;
    long n = 0;
    for (const GeneratedView& v : views)
      for (std::size_t p = 0; p < v.depth.size(); ++p)
        if (v.depth.data[p] > 0) sum += v.depth.data[p], ++n;
    return 4.0f * static_cast<float>(sum / n) / cameras[0].K[0];
  }

  // The depth maps as the program renders them before refining: one particle per pixel of every
  // view's measured depth, splatted into each view.
  std::vector<CMatrix<float>> rendered() {
    ParticleSet s;
    for (const GeneratedView& v : views)
      create_particles_from_depthmap(s.particles, s.offsets, s.normals, v.measured, v.normals, v.measured,
                                     v.camera.image, v.camera, 0.0f, 1e30f);
    const Points p = points(s);
    std::vector<CMatrix<float>> maps(view_count);
    for (int i = 0; i < view_count; ++i) {
      CMatrix<float3> normals;
      compute_depthmap_and_normals_from_points(maps[i], normals, p, cameras[i], rendering_depth_tolerance, 0.0f,
                                               FLT_MAX, 1.0f);
    }
    return maps;
  }

  Refined refine(std::vector<CMatrix<float>> const& maps, float r) {
    Refined out;
    refine_depthmaps(out.improved, out.particle, maps, ptrs, r);
    return out;
  }
};

float median(std::vector<float> v) {
  std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
  return v[v.size() / 2];
}

}  // namespace

// The middle views, seen by at least 3 neighbours, are refined where the refinement trusts
// them: at those pixels the improved depth lies nearer the ray-cast truth than the rendered one,
// and most of the surface is trusted.
TEST_F(RefineDepthmapsTest, ImprovedDepthIsNearerTheTruthThanTheRenderedDepth) {
  make_views(view_count, 0.003);
  const std::vector<CMatrix<float>> maps = rendered();
  const Refined out = refine(maps, radius());
  ASSERT_EQ(out.improved.size(), static_cast<std::size_t>(view_count));
  ASSERT_EQ(out.particle.size(), static_cast<std::size_t>(view_count));
  std::vector<float> before, after;
  long surface = 0;
  for (int i = 1; i < view_count - 1; ++i)
    for (int y = 0; y < ring.height; ++y)
      for (int x = 0; x < ring.width; ++x) {
        if (!interior(views[i], x, y) || maps[i](x, y) >= empty_depth) continue;
        ++surface;
        if (out.particle[i](x, y) == 0.0f) continue;
        EXPECT_EQ(out.particle[i](x, y), maps[i](x, y));
        before.push_back(std::fabs(maps[i](x, y) - views[i].depth(x, y)));
        after.push_back(std::fabs(out.improved[i](x, y) - views[i].depth(x, y)));
      }
  std::cout << "trusted " << before.size() << " of " << surface << " surface pixels, median error before "
            << median(before) << ", after " << median(after) << ", radius " << radius() << "\n";
  EXPECT_GT(before.size(), surface / 3);
  EXPECT_LT(median(after), 0.8f * median(before));
}

// Two views have one neighbour each, so no pixel gets the scores of 3: every pixel moves by
// -radius, those without depth too, and none is trusted. View 1's image comes from its file.
TEST_F(RefineDepthmapsTest, ViewsWithTooFewNeighboursMoveEveryPixelBackAndTrustNone) {
  make_views(2, 0.0);
  const CMatrix<uchar4> image = cameras[1].image;
  std::vector<unsigned char> rgb;
  for (std::size_t p = 0; p < image.size(); ++p) rgb.insert(rgb.end(), {image.data[p].x, image.data[p].y, image.data[p].z});
  cameras[1].image_filename = io_test::scratch_path("view_1.png");
  io_test::write_raw_png(cameras[1].image_filename, ring.width, ring.height, PNG_COLOR_TYPE_RGB, 8, rgb);
  cameras[1].image = CMatrix<uchar4>();

  std::vector<CMatrix<float>> maps{views[0].depth, views[1].depth};
  Refined out;
  out.improved.resize(3);
  refine_depthmaps(out.improved, out.particle, maps, ptrs, 0.1f);
  ASSERT_EQ(out.improved.size(), 2u);
  ASSERT_EQ(out.particle.size(), 2u);
  for (int i = 0; i < 2; ++i)
    for (std::size_t p = 0; p < maps[i].size(); ++p) {
      ASSERT_EQ(out.improved[i].data[p], maps[i].data[p] - 0.1f) << i << ": " << p;
      ASSERT_EQ(out.particle[i].data[p], 0.0f) << i << ": " << p;
    }
  ASSERT_EQ(cameras[1].image.size(), image.size());
  EXPECT_TRUE(std::equal(image.data, image.data + image.size(), cameras[1].image.data,
                         [](uchar4 a, uchar4 b) { return a.x == b.x && a.y == b.y && a.z == b.z && a.w == b.w; }));
}

TEST_F(RefineDepthmapsTest, EmptyAndMismatchedInputs) {
  Refined out;
  out.improved.resize(2);
  out.particle.resize(1);
  refine_depthmaps(out.improved, out.particle, {}, {}, 1.0f);
  EXPECT_TRUE(out.improved.empty());
  EXPECT_TRUE(out.particle.empty());

  make_views(1, 0.0);
  EXPECT_EQ(message_of([&] { refine({}, 1.0f); }), "refine_depthmaps: 0 depth maps for 1 views");
  EXPECT_EQ(message_of([&] { refine({CMatrix<float>(160, 121)}, 1.0f); }),
            "refine_depthmaps: the depth map of view 0 (160, 121) differs in size from its image (160, 120)");
}
