#include <gtest/gtest.h>

#include <cmath>

#include "tests/io_test_support.h"
#include "tools/scene/png_io.h"
#include "tools/scene/scene_files.h"
#include "tools/scene/surface_distance.h"

using io_test::scratch_path;
using namespace scene;

namespace {

SceneOptions small_options(const std::string& dir, int width, int height, int views = 8) {
  SceneOptions o;
  o.out_dir = scratch_path(dir);
  o.width = width;
  o.height = height;
  o.views = views;
  return o;
}

// Back-projects depth pixels of every written view with the values of its view file and checks
// that they lie on the analytic surface within the millimetre quantisation along the ray.
void expect_round_trip(const SceneOptions& o) {
  const Scene s = make_default_scene();
  write_scene(s, o);
  for (int v = 0; v < o.views; ++v) {
    const ViewFile view = read_view_file(o.out_dir + "/" + view_file_name(v));
    const Png16 depth = read_png_gray16(view.depth_path);
    ASSERT_EQ(depth.width, o.width);
    ASSERT_EQ(depth.height, o.height);
    int checked = 0;
    for (int y = 0; y < depth.height; y += 2)
      for (int x = 0; x < depth.width; x += 2) {
        const uint16_t mm = depth.values[y * depth.width + x];
        if (mm == 0) continue;
        const Vec3 p = back_project(view, x, y, mm / 1000.0);
        const double a = (view.K[2] - x) / view.K[0], b = (view.K[5] - y) / view.K[4];
        const double bound = 0.0005 * std::sqrt(1 + a * a + b * b) + 1e-6;
        ASSERT_LE(distance_to_surface(s, p), bound) << "view " << v << " pixel " << x << ", " << y;
        ++checked;
      }
    EXPECT_GT(checked, depth.width * depth.height / 16) << "view " << v;
  }
}

}  // namespace

TEST(SceneGenerator, DepthPixelsBackProjectOntoTheSurface) {
  expect_round_trip(small_options("round_trip", 120, 90));
  // A tall image with the principal point away from the centre: a mirrored or swapped
  // principal point would move most points off the surface.
  SceneOptions o = small_options("round_trip_offset", 72, 128, 3);
  o.principal_offset_x = 9.25;
  o.principal_offset_y = -14.5;
  expect_round_trip(o);
}
