// --preview end to end: one image per view, three panels of the view's size, the input on the
// left and the rendered model where the input has depth.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/run_process.h"
#include "tools/scene/png_io.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace fs = std::filesystem;

TEST(Preview, ImagesShowTheInputBesideTheRenderedModel) {
  const fs::path root = fs::path(QUILLARA_TEST_TMP) / "preview";
  fs::remove_all(root);
  scene::SceneOptions options;
  options.out_dir = (root / "scene").string();
  options.views = 6;
  options.width = 128;
  options.height = 96;
  scene::write_scene(scene::make_default_scene(), options);
  std::ifstream depth_file(options.out_dir + "/average_depth.txt");
  std::string average_depth;
  depth_file >> average_depth;
  std::vector<std::string> args = {"-o", (root / "model").string(), "--depth-avg", average_depth, "--superpixels",
                                   "400", "--min-support-sp", "1", "--min-support", "1", "--preview", "--"};
  for (int v = 0; v < options.views; ++v) args.push_back(options.out_dir + "/" + scene::view_file_name(v));
  const e2e::Result r = e2e::run(QUILLARA_BIN, root.string(), args);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_NE(r.out.find("  preview:          6 images in " + (root / "model" / "preview").string() + "\n"),
            std::string::npos)
      << r.out;

  for (int v = 0; v < options.views; ++v) {
    SCOPED_TRACE(v);
    const scene::ViewFile view = scene::read_view_file(options.out_dir + "/" + scene::view_file_name(v));
    const scene::PngRgb8 input = scene::read_png_rgb8(view.image_path);
    const scene::Png16 depth = scene::read_png_gray16(view.depth_path);
    const scene::PngRgb8 preview =
        scene::read_png_rgb8((root / "model" / "preview" / ("view_0" + std::to_string(v) + ".png")).string());
    ASSERT_EQ(preview.width, 3 * input.width);
    ASSERT_EQ(preview.height, input.height);
    int with_depth = 0, drawn = 0, input_differs = 0;
    for (int y = 0; y < input.height; ++y)
      for (int x = 0; x < input.width; ++x) {
        const auto at = [&](int px, int c) { return preview.rgb[3 * (y * preview.width + px) + c]; };
        for (int c = 0; c < 3; ++c) input_differs += at(x, c) != input.rgb[3 * (y * input.width + x) + c];
        if (depth.values[y * input.width + x] == 0) continue;
        ++with_depth;
        const int m = input.width + x, n = 2 * input.width + x;
        drawn += (at(m, 0) | at(m, 1) | at(m, 2)) != 0 && (at(n, 0) | at(n, 1) | at(n, 2)) != 0;
      }
    EXPECT_EQ(input_differs, 0);
    EXPECT_GT(drawn, with_depth / 3) << drawn << " of " << with_depth;
  }
}
