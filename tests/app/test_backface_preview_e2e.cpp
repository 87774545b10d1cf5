// --backface-test and --preview end to end, in one run on one generated scene: both removals run
// and the models before and after the last one are written beside the two of every run; one
// preview image per view, three panels of the view's size, the input on the left and the rendered
// model where the input has depth.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/generated_scene.h"
#include "tests/support/run_process.h"
#include "tools/scene/evaluation.h"
#include "tools/scene/png_io.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace fs = std::filesystem;

namespace {

void expect_preview_of_each_view(const e2e::GeneratedScene& generated, const fs::path& preview_dir) {
  for (int v = 0; v < 6; ++v) {
    SCOPED_TRACE(v);
    const scene::ViewFile view = scene::read_view_file(generated.view_files[v]);
    const scene::PngRgb8 input = scene::read_png_rgb8(view.image_path);
    const scene::Png16 depth = scene::read_png_gray16(view.depth_path);
    const scene::PngRgb8 preview = scene::read_png_rgb8((preview_dir / ("view_0" + std::to_string(v) + ".png")).string());
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

}  // namespace

TEST(BackfaceAndPreview, RemovalsWriteTheirModelsAndPreviewsShowInputBesideModel) {
  const fs::path root = fs::path(QUILLARA_TEST_TMP) / "backface_preview";
  fs::remove_all(root);
  const e2e::GeneratedScene generated = e2e::generate_scene((root / "scene").string(), 6, 128, 96);
  const std::string out = (root / "model").string();
  std::vector<std::string> args = {"-o", out, "--depth-avg", generated.average_depth, "--superpixels", "400",
                                   "--min-support-sp", "1", "--min-support", "1", "--backface-test", "--preview",
                                   "--"};
  args.insert(args.end(), generated.view_files.begin(), generated.view_files.end());
  const e2e::Result r = e2e::run(QUILLARA_BIN, root.string(), args);
  ASSERT_EQ(r.status, 0) << r.err;

  EXPECT_EQ(e2e::file_names(out), (std::vector<std::string>{"model.ply", "model_bf_removal1.ply", "model_bf_removal2.ply",
                                                       "model_superpixel.ply", "preview"}));
  EXPECT_EQ(e2e::occurrences(r.out, "removing invalid backface points\n"), 2u);
  EXPECT_NE(r.out.find("  back-face models: " + out + "/model_bf_removal1.ply and " + out +
                       "/model_bf_removal2.ply (before and after the last removal)\n"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("  preview:          6 images in " + out + "/preview\n"), std::string::npos) << r.out;

  // The removal only takes points away, and the last support filter follows it.
  const auto before = scene::read_model_ply(out + "/model_bf_removal1.ply");
  const auto after = scene::read_model_ply(out + "/model_bf_removal2.ply");
  const auto model = scene::read_model_ply(out + "/model.ply");
  EXPECT_GT(after.size(), 1000u);
  EXPECT_LE(after.size(), before.size());
  EXPECT_LE(model.size(), after.size());
  // What stays lies on the true surfaces as the default run's model does.
  const scene::Evaluation e = scene::evaluate_model(generated.dir, after);
  EXPECT_LT(e.accuracy.median, 0.5 * e.footprint);

  expect_preview_of_each_view(generated, out + "/preview");
}
