#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "formats/depth_png.h"
#include "image/png_io.h"
#include "tests/support/import_test_support.h"
#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"
#include "tools/scene/model_file.h"

namespace fs = std::filesystem;
using namespace import_test;
using importer::SourceLayout;

namespace {

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::vector<scene::ModelPoint> fuse(const std::string& out_dir, const std::string& depth_avg,
                                    const std::vector<std::string>& views) {
  const e2e::Result r = e2e::fuse(out_dir, depth_avg, views);
  EXPECT_EQ(r.status, 0) << r.err;
  return r.status == 0 ? scene::read_model_ply(out_dir + "/model.ply") : std::vector<scene::ModelPoint>{};
}

// The program named by `name` on the PATH, or an empty string.
std::string on_path(const std::string& name) {
  const char* path = std::getenv("PATH");
  std::istringstream dirs(path ? path : "");
  for (std::string dir; std::getline(dirs, dir, ':');)
    if (!dir.empty() && fs::exists(dir + "/" + name)) return dir + "/" + name;
  return "";
}

}  // namespace

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

// A trajectory log gives the native views up to the depth cut-off. What quillara would trip over
// later is refused at import, naming the file.
TEST(ImportRoundTrip, LogSequenceGivesTheNativeViewsAndViewsQuillaraCannotUseAreRefused) {
  const std::string root = io_test::fresh_scratch_dir();
  const Generated g = generate(root + "/scene", scene::Layout::log, 3);
  importer::ImportOptions o = options(SourceLayout::log, g.dir, root + "/cut_out");
  o.intrinsics = intrinsics_of(g.cameras[0]);
  o.settings.max_depth = 4.0;
  const importer::ImportSummary s = import(o);
  EXPECT_LE(s.largest_depth, 4.0);
  expect_native_views(g.dir, s, {0, 1, 2}, false, 4000);

  o = options(SourceLayout::log, g.dir, root + "/out");
  o.intrinsics = intrinsics_of(g.cameras[0]);

  o.settings.every = 3;
  expect_refused(o, "trajectory-log sequence " + g.dir +
                        ": 1 view to import; quillara needs at least 2 (--every 3 keeps 1 of 3)");
  o.settings.every = 1;

  const std::string colour = g.dir + "/color/000001.png";
  png_io::write_png(colour.c_str(), "test", 80, 60, 3, std::vector<uint8_t>(80 * 60 * 3, 7));
  expect_refused(o, colour + ": colour image is 80 x 60 pixels but its depth map 160 x 120");
  fs::remove(colour);
  const std::string spaced = g.dir + "/color/000001 copy.png";
  png_io::write_png(spaced.c_str(), "test", 160, 120, 3, std::vector<uint8_t>(160 * 120 * 3, 7));
  expect_refused(o, spaced + ": the path contains white space, which a view file cannot hold");

  const Generated c = generate(root + "/colmap", scene::Layout::colmap_text, 2);
  io_test::write_bytes(c.dir + "/sparse/cameras.txt",
                       "1 PINHOLE 80 60 100 100 40 30\n2 SIMPLE_PINHOLE 80 60 100 40 30\n");
  expect_refused(options(SourceLayout::colmap, c.dir, root + "/colmap_out"),
                 c.dir +
                     "/stereo/depth_maps/image_00.png.geometric.bin: depth map is 160 x 120 pixels, its "
                     "camera 80 x 60");
}

// The program imports a sequence, says what it did and what to run next; the command, pasted into
// a shell, fuses the imported views into the very model quillara makes of the native ones. (The
// trajectory log carries rotation matrices, which come through to the last bit, so the models
// agree point for point.) The output folder's name would run a command if the printed one were
// not quoted. Three views keep the two runs short; with fewer than five the program adds a hint.
TEST(ImportProgram, ImportedViewsFuseIntoTheNativeModelByThePrintedCommand) {
  const std::string root = io_test::fresh_scratch_dir();
  const Generated g = generate(root + "/scene", scene::Layout::log, 3);
  const std::string name = "imported;$(touch${IFS}X)", out = root + "/" + name;
  const scene::SceneCamera& c = g.cameras[0];
  char intrinsics[128];
  std::snprintf(intrinsics, sizeof intrinsics, "%.9g,%.9g,%.9g,%.9g", c.fx, c.fy, c.cx, c.cy);
  const e2e::Result r = e2e::run(QUILLARA_IMPORT_BIN, root, {"log", g.dir, name, "--intrinsics", intrinsics});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  const std::vector<std::string> lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), 10u) << r.out;
  EXPECT_EQ(lines[0], "Importing 3 views of trajectory-log sequence " + g.dir);
  EXPECT_EQ(lines[1].rfind("  view_00.txt  000000.png  160 x 120, ", 0), 0u) << lines[1];
  EXPECT_EQ(lines[4], "quillara-import: 3 views from trajectory-log sequence " + g.dir + " in " + out);
  EXPECT_EQ(lines[5].rfind("  depths: ", 0), 0u) << lines[5];
  EXPECT_EQ(lines[6], "  scale: 1 (lengths as in the source)");
  EXPECT_EQ(lines[7], "Next:");
  const std::string command = "  quillara --out-dir '" + out + "/model' --depth-avg ";
  ASSERT_EQ(lines[8].rfind(command, 0), 0u) << lines[8];
  const std::size_t dashes = lines[8].find(" -- ");
  EXPECT_EQ(lines[8].substr(dashes), " -- '" + out + "'/view_*.txt");
  EXPECT_EQ(lines[9],
            "  (with fewer than 5 views, add --visible-support 0.3: a point then needs only a share of the support "
            "that the views which see it could give)");

  // The suggested average depth is the median depth, close to the generator's mean.
  const std::string depth_avg = lines[8].substr(command.size(), dashes - command.size());
  const std::string mean = e2e::average_depth(g.dir);
  EXPECT_NEAR(std::stod(depth_avg), std::stod(mean), 0.25 * std::stod(mean));

  // The command as printed, with the program's path and fuse()'s settings for small scenes.
  std::string pasted = "'" + std::string(QUILLARA_BIN) + "'" + lines[8].substr(std::string("  quillara").size());
  pasted.replace(pasted.find(" -- "), 4, " --superpixels 300 --min-support-sp 1 --min-support 1 -- ");
  const e2e::Result imported = e2e::run("/bin/sh", root, {"-c", pasted}, {"OMP_NUM_THREADS=1"});
  ASSERT_EQ(imported.status, 0) << pasted << "\n" << imported.err;
  EXPECT_FALSE(fs::exists(root + "/X"));

  std::vector<std::string> native;
  for (int v = 0; v < 3; ++v) native.push_back(g.dir + "/" + scene::view_file_name(v));
  const std::vector<scene::ModelPoint> a = fuse(root + "/model_native", depth_avg, native);
  const std::vector<scene::ModelPoint> b = scene::read_model_ply(out + "/model/model.ply");
  ASSERT_GT(a.size(), 300u);  // three views 120 degrees apart confirm few points
  ASSERT_EQ(a.size(), b.size());
  double largest = 0;
  for (size_t i = 0; i < a.size(); ++i)
    largest = std::max({largest, length(a[i].point - b[i].point), length(a[i].normal - b[i].normal)});
  EXPECT_LT(largest, 1e-6);
}

// A real writer of sparse models converts the generator's text model to binary and its binary
// model to text; every import of the four models gives the same views, off-centre principal point
// included. (Native views fuse onto the true surfaces: see the camera convention and fusion tests.)
TEST(ColmapConverter, BinaryAndTextModelsOfTheRealWriterImportAlike) {
  const std::string converter = on_path("colmap");
  if (converter.empty()) GTEST_SKIP() << "colmap is not installed (scripts/install-deps installs it)";
  const std::string root = io_test::fresh_scratch_dir();
  const Generated text = generate(root + "/text", scene::Layout::colmap_text, 3);
  const Generated binary = generate(root + "/binary", scene::Layout::colmap_bin, 3);
  // The converted models replace the generator's in copies of the workspaces.
  for (const auto& [source, copy, type] :
       {std::tuple{text.dir, root + "/text_as_bin", "BIN"}, std::tuple{binary.dir, root + "/bin_as_text", "TXT"}}) {
    fs::copy(source, copy, fs::copy_options::recursive);
    fs::remove_all(copy + "/sparse");
    fs::create_directories(copy + "/sparse");
    const e2e::Result r = e2e::run(converter, root, {"model_converter", "--input_path", source + "/sparse",
                                                     "--output_path", copy + "/sparse", "--output_type", type});
    ASSERT_EQ(r.status, 0) << r.out << r.err;
  }
  for (const std::string& dir : {root + "/text_as_bin", root + "/bin_as_text"}) {
    SCOPED_TRACE(dir);
    expect_native_views(text.dir, import(options(SourceLayout::colmap, dir, dir + "_out")), {0, 1, 2});
  }
}
