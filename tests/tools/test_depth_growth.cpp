// Growing depths along neighbouring slanted planes in quillara-depth, on the true depth maps and
// images of a generated scene: holes cut into a view's depths fill again with depths close to the
// truth, and the flat background stays all but empty.

#include <gtest/gtest.h>

#include <cmath>
#include <iostream>
#include <string>
#include <vector>

#include "formats/depth_png.h"
#include "tests/support/io_test_support.h"
#include "tools/depth/depth_views.h"
#include "tools/depth/local_texture.h"
#include "tools/depth/plane_growth.h"
#include "tools/scene/scene_files.h"

TEST(DepthGrowth, AHoleRefillsWithTrueDepthsAndTheBackgroundStaysEmpty) {
  scene::SceneOptions o;
  o.out_dir = io_test::fresh_scratch_dir() + "/scene";
  o.views = 16, o.width = 160, o.height = 120, o.ground_truth_stride = 4;
  scene::write_scene(scene::make_default_scene(), o);
  std::vector<depth_tool::DepthView> views;
  for (int v : {0, 1, 15})
    views.push_back(depth_tool::read_depth_view(o.out_dir + "/" + scene::view_file_name(v), v, false));
  const CMatrix<unsigned short> png = read_depth_png(views[0].view.depth_path);
  CMatrix<float> truth(png.xSize, png.ySize);
  for (std::size_t i = 0; i < png.size(); ++i) truth.data[i] = static_cast<float>(thousandths_to_depth(png.data[i]));

  // Every depth of view 0 gone but a border of 3 pixels round every hole-free 16 x 16 block.
  CMatrix<float> depth = truth;
  long cut = 0;
  for (int y = 0; y < depth.ySize; ++y)
    for (int x = 0; x < depth.xSize; ++x)
      if (x % 16 >= 3 && x % 16 < 13 && y % 16 >= 3 && y % 16 < 13 && depth(x, y) > 0) depth(x, y) = 0, ++cut;
  depth_tool::GrowthSettings s;
  s.near = 0.5f, s.far = 20.0f, s.label_step = (1 / s.near - 1 / s.far) / 127;
  const long grown = depth_tool::grow_on_slanted_windows(depth, views[0].camera, {&views[1].camera, &views[2].camera},
                                                         depth_tool::local_texture(views[0].camera.image, 4), s);
  long close = 0, background = 0;
  for (std::size_t p = 0; p < depth.size(); ++p) {
    if (!(depth.data[p] > 0)) continue;
    if (!(truth.data[p] > 0)) ++background;
    else close += std::fabs(depth.data[p] - truth.data[p]) <= 0.01f * truth.data[p];
  }
  std::cout << "cut " << cut << ", grown " << grown << ", into the background " << background << "\n";
  EXPECT_GT(grown, cut / 2);
  // Windows that straddle the horizon still match at its edge, and only there.
  EXPECT_LT(background, grown / 20);
  // Grown and kept depths alike: all but a few within 1 % of the truth.
  long with_depth = 0;
  for (std::size_t p = 0; p < depth.size(); ++p) with_depth += depth.data[p] > 0;
  EXPECT_GT(close, 0.95 * static_cast<double>(with_depth));
}
