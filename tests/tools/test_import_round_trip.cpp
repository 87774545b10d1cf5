#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/import_test_support.h"
#include "tests/support/io_test_support.h"

namespace fs = std::filesystem;
using namespace import_test;
using importer::SourceLayout;

// The sequence stores 1/5000 m, so the imported scene is five times the native one, every depth
// value kept; colour comes from JPEG.
TEST(ImportRoundTrip, TumSequenceGivesTheNativeViewsScaledByFive) {
  const std::string root = io_test::fresh_scratch_dir();
  const Generated g = generate(root + "/scene", scene::Layout::tum);
  importer::ImportOptions o = options(SourceLayout::tum, g.dir, root + "/out");
  o.intrinsics = intrinsics_of(g.cameras[0]);
  std::string printed;
  const importer::ImportSummary s = import(o, &printed);
  EXPECT_EQ(s.scale, 5.0);
  EXPECT_NE(printed.find("  scale: 5 (every length of the view files is 5 times the source's"), std::string::npos);
  expect_native_views(g.dir, s, {0, 1, 2, 3, 4, 5}, true);
}

TEST(ImportRoundTrip, LogSequenceGivesTheNativeViewsUpToTheDepthCutOff) {
  const std::string root = io_test::fresh_scratch_dir();
  const Generated g = generate(root + "/scene", scene::Layout::log);
  importer::ImportOptions o = options(SourceLayout::log, g.dir, root + "/out");
  o.intrinsics = intrinsics_of(g.cameras[0]);
  o.settings.max_depth = 4.0;
  const importer::ImportSummary s = import(o);
  EXPECT_LE(s.largest_depth, 4.0);
  expect_native_views(g.dir, s, {0, 1, 2, 3, 4, 5}, false, 4000);
}

// Text and binary models give the native views. Geometric maps win where present, photometric
// ones fill in; either kind can be forced, and a map that is not taken is not read.
TEST(ImportRoundTrip, ColmapModelsGiveTheNativeViewsWithDepthMapsChosenPerImage) {
  const std::string root = io_test::fresh_scratch_dir();
  const Generated g = generate(root + "/scene", scene::Layout::colmap_text);
  std::string printed;
  const importer::ImportSummary s = import(options(SourceLayout::colmap, g.dir, root + "/text_out"), &printed);
  EXPECT_EQ(s.scale, 1.0);
  expect_native_views(g.dir, s, {0, 1, 2, 3, 4, 5});
  EXPECT_NE(printed.find("  depth maps: 6 geometric, 0 photometric\n"), std::string::npos) << printed;
  EXPECT_NE(printed.find("Next:\n  quillara --out-dir " + s.out_dir + "/model --depth-avg "), std::string::npos);

  const Generated binary = generate(root + "/binary", scene::Layout::colmap_bin);
  importer::ImportOptions every = options(SourceLayout::colmap, binary.dir, root + "/binary_out");
  every.settings.every = 2;
  expect_native_views(binary.dir, import(every), {0, 2, 4});

  const std::string maps = g.dir + "/stereo/depth_maps/";
  fs::remove(maps + "image_01.png.geometric.bin");
  io_test::write_bytes(maps + "image_03.png.photometric.bin", "broken");
  expect_native_views(g.dir, import(options(SourceLayout::colmap, g.dir, root + "/auto"), &printed), {0, 1, 2, 3, 4, 5});
  EXPECT_NE(printed.find("  depth maps: 5 geometric, 1 photometric\n"), std::string::npos) << printed;

  importer::ImportOptions o = options(SourceLayout::colmap, g.dir, root + "/geometric");
  o.depth_maps = importer::DepthChoice::geometric;
  expect_native_views(g.dir, import(o, &printed), {0, 2, 3, 4, 5});
  EXPECT_NE(printed.find("  1 registered images without a geometric depth map left out, the first image_01.png\n"),
            std::string::npos)
      << printed;

  o.depth_maps = importer::DepthChoice::photometric;
  expect_refused(o, maps +
                        "image_03.png.photometric.bin: expected a header \"width&height&channels&\" (not a "
                        "depth map file)");
}

// What quillara would trip over later is refused at import, naming the file.
TEST(ImportRoundTrip, ViewsQuillaraCannotUseAreRefused) {
  const std::string root = io_test::fresh_scratch_dir();
  const Generated g = generate(root + "/scene", scene::Layout::log, 3);
  importer::ImportOptions o = options(SourceLayout::log, g.dir, root + "/out");
  o.intrinsics = intrinsics_of(g.cameras[0]);

  o.settings.every = 3;
  expect_refused(o, "trajectory-log sequence " + g.dir + ": 1 view to import; quillara needs at least 2");
  o.settings.every = 1;

  const std::string colour = g.dir + "/color/000001.png";
  scene::write_png_rgb8(colour, 80, 60, std::vector<uint8_t>(80 * 60 * 3, 7));
  expect_refused(o, colour + ": colour image is 80 x 60 pixels but its depth map 160 x 120");
  scene::write_png_gray16(colour, 160, 120, std::vector<uint16_t>(160 * 120, 7));
  expect_refused(o, colour +
                        ": CTensor::readFromPNG: Format not supported.  Expected RGB(A) image with 8-bit per "
                        "channel");
  fs::remove(colour);
  const std::string spaced = g.dir + "/color/000001 copy.png";
  scene::write_png_rgb8(spaced, 160, 120, std::vector<uint8_t>(160 * 120 * 3, 7));
  expect_refused(o, spaced + ": the path contains white space, which a view file cannot hold");

  const Generated c = generate(root + "/colmap", scene::Layout::colmap_text, 2);
  io_test::write_bytes(c.dir + "/sparse/cameras.txt",
                       "1 PINHOLE 80 60 100 100 40 30\n2 SIMPLE_PINHOLE 80 60 100 40 30\n");
  expect_refused(options(SourceLayout::colmap, c.dir, root + "/colmap_out"),
                 c.dir +
                     "/stereo/depth_maps/image_00.png.geometric.bin: depth map is 160 x 120 pixels, its "
                     "camera 80 x 60");
}
