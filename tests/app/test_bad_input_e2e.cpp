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
    dir_ = fs::path(QUILLARA_TEST_TMP) / "bad_input" / testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(dir_);
    scene::SceneOptions options;  // each test has its own scene: ctest runs them as parallel processes
    options.out_dir = (dir_ / "scene").string();
    options.views = 4;
    options.width = 160;
    options.height = 120;
    options.ground_truth_stride = 160;
    scene_ = e2e::generate_scene(options);
  }
  // Idle OpenMP threads sleep instead of spinning, which keeps runs quick on a busy machine.
  e2e::Result quillara(std::vector<std::string> args, e2e::Limits limits = {}) {
    limits.seconds = 120.0;
    return e2e::run(QUILLARA_BIN, dir_.string(), args, {"OMP_WAIT_POLICY=passive"}, limits);
  }
  // The command line for output directory `out`, the views and any further options.
  std::vector<std::string> command(const std::string& out, const std::vector<std::string>& views,
                                   const std::vector<std::string>& more = {}) {
    std::vector<std::string> args = {"-o", out, "--depth-avg", scene_.average_depth, "--superpixels", "300"};
    args.insert(args.end(), more.begin(), more.end());
    args.push_back("--");
    args.insert(args.end(), views.begin(), views.end());
    return args;
  }
  std::vector<std::string> files(const std::string& out) { return e2e::file_names((dir_ / out).string()); }
  void write(const std::string& name, const std::string& text) { io_test::write_bytes((dir_ / name).string(), text); }

  fs::path dir_;
  e2e::GeneratedScene scene_;
};

TEST_F(BadInput, ViewFileMistakesEndInOneLineNamingTheFile) {
  const std::string view_text = io_test::read_bytes(scene_.view_files[1]);
  const std::string image = scene_.dir + "/image_01.png";
  const std::string png = io_test::read_bytes(image);
  write("cut.png", png.substr(0, png.size() / 2));
  write_depth_png((dir_ / "small.png").string(), 80, 60, std::vector<unsigned short>(80 * 60, 3000));
  write("photo.gif", png);
  const std::string tokens = "has 23 tokens, expected 25 (K: 9, R: 9, t: 3, width, height, colour image, depth map)";
  const std::pair<std::string, std::string> cases[] = {
      {view_text.substr(0, view_text.find(image)), tokens},
      {with_token(view_text, 2, "zero"), "token 2 (K) is \"zero\", not a finite number"},
      {with_token(view_text, 23, "121"), "states a size of 160 x 121 but the colour image \"" + image + "\" is 160 x 120"},
      {with_token(view_text, 18, "2"),
       "the rotation (tokens 10 to 18) is not orthonormal: R^T R differs from the identity by up to "},
      {with_token(view_text, 24, "missing.png"),
       "colour image \"missing.png\": CTensor::readFromPNG: Cannot open file missing.png"},
      {with_token(view_text, 24, "cut.png"), "colour image \"cut.png\": CTensor::readFromPNG: png_read_image failed"},
      {with_token(view_text, 24, "photo.gif"), "colour image \"photo.gif\": Image file format not supported"},
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
    EXPECT_TRUE(fs::is_empty(dir_ / "out"));
  }
}

// Radii beyond the 32-bit kernel would stall the filter for ever: refused once fx is known.
TEST_F(BadInput, AverageDepthTheFilterCannotComputeIsRefused) {
  std::vector<std::string> args = command("out", {scene_.view_files[0], scene_.view_files[1]});
  args[3] = "1e30";
  const e2e::Result huge = quillara(args);
  EXPECT_EQ(huge.status, 1) << huge;
  EXPECT_TRUE(huge.err.starts_with("--depth-avg 1e+30 makes the smoothing radius ")) << huge.err;
  EXPECT_EQ(std::count(huge.err.begin(), huge.err.end(), '\n'), 1) << huge.err;
  EXPECT_TRUE(fs::is_empty(dir_ / "out"));

  args[3] = "100";  // far from the scene's depths, but computable: a warning
  const e2e::Result far = quillara(args);
  EXPECT_EQ(far.status, 0) << far;
  EXPECT_TRUE(far.err.starts_with("warning: --depth-avg 100 lies far outside the depths of the input (")) << far.err;
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
