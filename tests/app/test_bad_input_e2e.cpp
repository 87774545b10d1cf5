#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "formats/depth_png.h"
#include "tests/support/io_test_support.h"
#include "tests/support/generated_scene.h"
#include "tests/support/run_process.h"
#include "tools/scene/scene_files.h"

// Runs the quillara binary on a tiny generated scene with bad view files, images and limits: each
// run ends in time, with exit status 1 and one line naming the file, and leaves no partial model
// and the earlier one as it was.

namespace fs = std::filesystem;

namespace {

// The view file's tokens with token k (from 1) replaced.
std::string with_token(const std::string& text, int k, const std::string& value) {
  std::istringstream in(text);
  std::vector<std::string> tokens((std::istream_iterator<std::string>(in)), std::istream_iterator<std::string>());
  tokens[k - 1] = value;
  std::string out;
  for (const std::string& t : tokens) out += t + " ";
  return out;
}

// The psz column of a model written by the program (x y z nx ny nz as float, three uchar
// colours, psz as float), and whether every position is finite.
std::vector<float> point_sizes(const std::string& path, bool& finite) {
  const std::string bytes = io_test::read_bytes(path);
  const std::size_t body = bytes.find("end_header\n") + 11;
  const std::size_t count = std::stoul(bytes.substr(bytes.find("element vertex ") + 15));
  std::vector<float> sizes(count);
  finite = true;
  for (std::size_t i = 0; i < count; ++i) {
    float xyz[3];
    std::memcpy(xyz, bytes.data() + body + 31 * i, sizeof xyz);
    std::memcpy(&sizes[i], bytes.data() + body + 31 * i + 27, sizeof(float));
    finite = finite && std::isfinite(xyz[0]) && std::isfinite(xyz[1]) && std::isfinite(xyz[2]);
  }
  return sizes;
}

class BadInput : public testing::Test {
 protected:
  void SetUp() override {
    dir_ = io_test::fresh_scratch_dir();
    // Each test has its own scene: ctest runs them as parallel processes.
    scene_ = e2e::generate_scene(e2e::small_scene((dir_ / "scene").string(), 4));
  }
  // Idle OpenMP threads sleep instead of spinning, which keeps runs quick on a busy machine.
  e2e::Result quillara(std::vector<std::string> args, e2e::Limits limits = {}) {
    limits.seconds = 120.0;
    return e2e::run(QUILLARA_BIN, dir_.string(), args, {"OMP_WAIT_POLICY=passive"}, limits);
  }
  // The command line for output directory `out`, the views and any further options.
  std::vector<std::string> command(const std::string& out, const std::vector<std::string>& views,
                                   const std::vector<std::string>& more = {}) {
    return e2e::fusion_args({"-o", out}, scene_.average_depth, "300", more, views);
  }
  std::vector<std::string> files(const std::string& out) { return e2e::file_names((dir_ / out).string()); }
  void write(const std::string& name, const std::string& text) { io_test::write_bytes((dir_ / name).string(), text); }

  fs::path dir_;
  e2e::GeneratedScene scene_;
};

// The image readers' own causes are pinned by the image suite; here each reader is reached once
// through a view file.
TEST_F(BadInput, ViewFileMistakesEndInOneLineNamingTheFile) {
  const std::string view_text = io_test::read_bytes(scene_.view_files[1]);
  const std::string image = scene_.dir + "/image_01.png";
  write_depth_png((dir_ / "small.png").string(), 80, 60, std::vector<unsigned short>(80 * 60, 3000));
  const std::string tokens = "has 23 tokens, expected 25 (K: 9, R: 9, t: 3, width, height, colour image, depth map)";
  const std::pair<std::string, std::string> cases[] = {
      {view_text.substr(0, view_text.find(image)), tokens},
      {view_text + " extra",
       "has more than 25 tokens, the first extra one \"extra\" (a path cannot contain white space)"},
      {with_token(view_text, 2, "zero"), "token 2 (K) is \"zero\", not a finite number"},
      {with_token(view_text, 23, "121"), "states a size of 160 x 121 but the colour image \"" + image + "\" is 160 x 120"},
      {with_token(view_text, 18, "2"),
       "the rotation (tokens 10 to 18) is not orthonormal: R^T R differs from the identity by up to "},
      {with_token(view_text, 24, "missing.png"),
       "colour image \"missing.png\": CTensor::readFromPNG: Cannot open file missing.png: No such file or directory"},
      {with_token(view_text, 25, image),
       "depth map \"" + image +
           "\": CMatrix::readFromPNG: Format not supported.  Expected Greyscale image with 8 or 16 bit per channel"},
      {with_token(view_text, 25, "small.png"),
       "the depth map \"small.png\" is 80 x 60 but the colour image \"" + image + "\" is 160 x 120"},
  };
  for (const auto& [text, cause] : cases) {
    write("bad.txt", text);
    const e2e::Result r = quillara(command("out", {scene_.view_files[0], "bad.txt"}));
    EXPECT_EQ(r.status, 1) << r;
    EXPECT_TRUE(r.err.starts_with("view file \"bad.txt\": " + cause)) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_FALSE(fs::exists(dir_ / "out"));  // the run made it and takes it back
  }
}

// What is knowable before the work is refused before it, with the option or path named: the
// superpixel count against the image, an average depth whose radii the filter's 32-bit kernel
// cannot compute (they would stall it for ever), the preview paths. An unknown option passes, with
// a warning, and so does an average depth far from the input's depths.
TEST_F(BadInput, SettingsAndPathsAreCheckedBeforeTheWork) {
  const std::vector<std::string> two = {scene_.view_files[0], scene_.view_files[1]};
  fs::create_directories(dir_ / "file_there");
  write("file_there/preview", "a file");
  fs::create_directories(dir_ / "folder_there/preview/view_01.png");
  struct Case {
    std::vector<std::string> args;
    std::string err;
  };
  std::vector<std::string> many = command("out", two);
  many[5] = "2147483647";  // --superpixels
  std::vector<std::string> huge = command("out", two), far = command("far", two);
  huge[3] = "1e30";  // --depth-avg
  far[3] = "100";
  const Case cases[] = {
      {many,
       "--superpixels 2147483647 asks for more superpixels than the 160 x 120 pixels of the first view\n"},
      {huge,
       "--depth-avg 1e+30 makes the smoothing radius 7.62195e+27 (one pixel at fx 131.2 of the first view), too "
       "large for the filter's 32-bit kernel; give the scene's average depth in the length unit of the view files\n"},
      {command("file_there", two, {"--preview"}),
       "cannot write previews to \"file_there/preview\": it exists and is not a directory\n"},
      {command("folder_there", two, {"--preview"}),
       "cannot write preview image \"folder_there/preview/view_01.png\": it is a directory\n"},
      {command("out", {scene_.view_files[0]}, {"--visible-suport", "0.3"}),
       "warning: unknown option '--visible-suport' is ignored\nnot enough files\n"},
  };
  for (const Case& c : cases) {
    const e2e::Result r = quillara(c.args);
    EXPECT_EQ(r.status, 1) << r;
    EXPECT_EQ(r.err, c.err);
    EXPECT_FALSE(fs::exists(dir_ / "out"));
  }
  EXPECT_EQ(files("file_there"), (std::vector<std::string>{"preview"}));
  EXPECT_EQ(files("folder_there"), (std::vector<std::string>{"preview"}));
  const e2e::Result r = quillara(far);
  EXPECT_EQ(r.status, 0) << r;
  EXPECT_TRUE(r.err.starts_with("warning: --depth-avg 100 lies far outside the depths of the input (")) << r.err;
}

// A model that cannot be written is an error; the earlier file stays whole and no part is left.
TEST_F(BadInput, FailedWriteKeepsTheEarlierModel) {
  fs::create_directories(dir_ / "out");
  write("out/model_superpixel.ply", "earlier superpixel model");
  write("out/model.ply", "earlier model");
  e2e::Limits limits;
  limits.file_size = 2000;  // the header fits, the points don't
  const e2e::Result r = quillara(command("out", scene_.view_files, {"--min-support-sp", "0"}), limits);
  EXPECT_EQ(r.status, 1) << r;
  EXPECT_EQ(r.err, "cannot write model file \"out/model_superpixel.ply\": File too large\n");
  EXPECT_EQ(files("out"), (std::vector<std::string>{"model.ply", "model_superpixel.ply"}));
  EXPECT_EQ(io_test::read_bytes((dir_ / "out/model_superpixel.ply").string()), "earlier superpixel model");
  EXPECT_EQ(io_test::read_bytes((dir_ / "out/model.ply").string()), "earlier model");
}

// Keeping every point used to pile the pixels without depth into a few cells at the camera
// centres (footprint 0), which made the neighbour passes quadratic. Now the run ends in time, and
// the summary reports the model it wrote.
TEST_F(BadInput, KeepingEveryPointEndsInTime) {
  const e2e::Result r = quillara(
      command("out", {scene_.view_files[0], scene_.view_files[1]}, {"--min-support-sp", "0", "--min-support", "0"}));
  ASSERT_EQ(r.status, 0) << r.err;
  bool finite = false;
  const std::vector<float> sizes = point_sizes((dir_ / "out/model.ply").string(), finite);
  EXPECT_TRUE(finite);
  EXPECT_GT(sizes.size(), 10000u);
  EXPECT_GT(*std::min_element(sizes.begin(), sizes.end()), 0.0f);
  EXPECT_EQ(files("out"), (std::vector<std::string>{"model.ply", "model_superpixel.ply"}));

  const std::string summary = e2e::closing_summary(r.out);
  const std::string model_line = "  model:            " + std::to_string(sizes.size()) + " points in out/model.ply, ";
  EXPECT_NE(summary.find(model_line), std::string::npos) << summary;
  EXPECT_EQ(std::count(summary.begin(), summary.end(), '\n'), 3) << summary;  // no advice: most points were kept
}

}  // namespace
