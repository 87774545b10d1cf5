#include <gtest/gtest.h>
#include <sys/wait.h>
#include <zlib.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "tools/scene/png_io.h"
#include "tools/scene/ray_cast.h"
#include "tools/scene/render_view.h"
#include "tools/scene/scene_arguments.h"
#include "tools/scene/scene_files.h"
#include "tools/scene/surface_distance.h"
#include "tools/scene/surface_error.h"

namespace fs = std::filesystem;
using namespace scene;

namespace {

std::string scratch(const std::string& name) {
  const fs::path dir = fs::path(QUILLARA_TEST_TMP) / "scene_generator" / name;
  fs::remove_all(dir);
  fs::create_directories(dir);
  return dir.string();
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

SceneOptions small_options(const std::string& dir, int width, int height) {
  SceneOptions o;
  o.out_dir = dir;
  o.width = width;
  o.height = height;
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
  expect_round_trip(small_options(scratch("round_trip"), 120, 90));
  // A tall image with the principal point away from the centre: a mirrored or swapped
  // principal point would move most points off the surface.
  SceneOptions o = small_options(scratch("round_trip_offset"), 72, 128);
  o.views = 3;
  o.principal_offset_x = 9.25;
  o.principal_offset_y = -14.5;
  expect_round_trip(o);
}

TEST(SceneGenerator, ViewFileHasTwentyFiveTokensWithAbsolutePaths) {
  const Scene s = make_default_scene();
  SceneOptions o = small_options(scratch("view_file"), 64, 48);
  write_scene(s, o);
  for (int v = 0; v < o.views; ++v) {
    std::istringstream in(slurp(o.out_dir + "/" + view_file_name(v)));
    const std::vector<std::string> tokens{std::istream_iterator<std::string>(in), {}};
    ASSERT_EQ(tokens.size(), 25u);
    EXPECT_EQ(tokens[21], "64");
    EXPECT_EQ(tokens[22], "48");
    EXPECT_EQ(tokens[23], fs::absolute(o.out_dir + "/" + image_file_name(v)).lexically_normal().string());
    EXPECT_EQ(tokens[24], fs::absolute(o.out_dir + "/" + depth_file_name(v)).lexically_normal().string());
    EXPECT_TRUE(fs::path(tokens[23]).is_absolute() && fs::exists(tokens[23]));
    EXPECT_TRUE(fs::path(tokens[24]).is_absolute() && fs::exists(tokens[24]));

    // Intrinsics, and a proper rotation whose third row (the depth axis) points at the scene.
    const ViewFile f = read_view_file(o.out_dir + "/" + view_file_name(v));
    EXPECT_EQ(static_cast<float>(f.K[0]), static_cast<float>(0.82 * 64));
    EXPECT_EQ(f.K[4], f.K[0]);
    EXPECT_EQ(f.K[2], 31.5);
    EXPECT_EQ(f.K[5], 23.5);
    const Vec3 r0{f.R[0], f.R[1], f.R[2]}, r1{f.R[3], f.R[4], f.R[5]}, r2{f.R[6], f.R[7], f.R[8]};
    EXPECT_NEAR(dot(cross(r0, r1), r2), 1.0, 1e-6);
    const Vec3 t{f.t[0], f.t[1], f.t[2]};
    const Vec3 center = -Vec3{dot(Vec3{f.R[0], f.R[3], f.R[6]}, t), dot(Vec3{f.R[1], f.R[4], f.R[7]}, t),
                              dot(Vec3{f.R[2], f.R[5], f.R[8]}, t)};
    EXPECT_NEAR(std::hypot(center.x, center.y), 3.0, 1e-5);
    EXPECT_NEAR(dot(r2, normalize(s.look_at - center)), 1.0, 1e-6);
  }
}

TEST(SceneGenerator, AnalyticDistanceAndNormal) {
  const Scene s = make_default_scene();
  const Shape& sphere = s.shapes[find_shape(s, "sphere")];
  const Shape& sheet = s.shapes[find_shape(s, "sheet")];
  const Shape& rod = s.shapes[find_shape(s, "rod_0")];
  EXPECT_NEAR(distance_to_surface(s, Vec3{-1.9, 1.9, 0.1}), 0.1, 1e-12);
  EXPECT_NEAR(distance_to_surface(s, Vec3{0, 3.2, 0}), 1.0, 1e-12);  // beyond the ground's edge
  EXPECT_NEAR(distance_to_surface(s, sphere.center), 0.35, 1e-12);
  EXPECT_NEAR(distance_to_surface(s, sheet.center), 0.002, 1e-12);
  const Vec3 side = sheet.axes * Vec3{1, 0, 0};
  EXPECT_NEAR(distance_to_surface(s, sheet.center + 0.05 * side), 0.048, 1e-12);
  EXPECT_NEAR(dot(surface_normal(s, sheet.center + 0.05 * side), side), 1.0, 1e-12);
  EXPECT_NEAR(dot(surface_normal(s, sheet.center - 0.05 * side), side), -1.0, 1e-12);
  EXPECT_NEAR(distance_to_surface(s, rod.center + Vec3{0.05, 0, 0}), 0.0425, 1e-12);
  const float3 above = surface_normal(s, make_float3(-1.9f, 1.9f, 0.1f));
  EXPECT_EQ(above.z, 1.0f);
}

// Every ray hit lies on the analytic surface, and its normal is that surface's normal.
TEST(SceneGenerator, RayHitsAgreeWithDistanceAndNormal) {
  const Scene s = make_default_scene();
  CameraRing ring;
  ring.width = 80;
  ring.height = 60;
  int hits = 0;
  for (const SceneCamera& c : make_cameras(s, ring))
    for (int y = 0; y < c.height; ++y)
      for (int x = 0; x < c.width; ++x) {
        const Hit h = cast_ray(s, c.center, pixel_direction(c, x, y));
        if (!h.found) continue;
        ++hits;
        ASSERT_LT(distance_to_surface(s, h.point), 1e-9);
        ASSERT_LT(dot(h.normal, pixel_direction(c, x, y)), 0.0);
        ASSERT_NEAR(std::abs(dot(shape_normal(s.shapes[h.shape], h.point), h.normal)), 1.0, 1e-9);
      }
  EXPECT_GT(hits, 8 * 80 * 60 / 2);
}

// Each object, and each face of the sheet, is seen by several of the default views.
TEST(SceneGenerator, EveryObjectAndBothSheetFacesAreSeenBySeveralViews) {
  const Scene s = make_default_scene();
  const int sheet = find_shape(s, "sheet");
  CameraRing ring;
  ring.width = 160;
  ring.height = 120;
  std::vector<std::set<int>> seen_by(s.shapes.size());
  std::set<int> front, back;
  const std::vector<SceneCamera> cameras = make_cameras(s, ring);
  for (size_t v = 0; v < cameras.size(); ++v) {
    const RenderedView r = render_view(s, cameras[v], static_cast<int>(v), 0.0, 1);
    std::vector<int> count(s.shapes.size()), faces(2);
    for (int y = 0; y < r.height; ++y)
      for (int x = 0; x < r.width; ++x) {
        const int shape = r.shape[y * r.width + x];
        if (shape < 0) continue;
        ++count[shape];
        if (shape == sheet) {
          const Hit h = cast_ray(s, cameras[v].center, pixel_direction(cameras[v], x, y));
          ++faces[h.local_normal.x > 0 ? 0 : 1];
        }
      }
    for (size_t k = 0; k < count.size(); ++k)
      if (count[k] >= 3) seen_by[k].insert(static_cast<int>(v));
    if (faces[0] >= 20) front.insert(static_cast<int>(v));
    if (faces[1] >= 20) back.insert(static_cast<int>(v));
  }
  for (size_t k = 0; k < s.shapes.size(); ++k) EXPECT_GE(seen_by[k].size(), 3u) << s.shapes[k].name;
  EXPECT_GE(front.size(), 2u);
  EXPECT_GE(back.size(), 2u);
}

TEST(SceneGenerator, SameSeedGivesIdenticalFilesOtherSeedOtherDepths) {
  const Scene s = make_default_scene();
  SceneOptions a = small_options(scratch("seed_a"), 48, 40), b = a, c = a;
  a.views = b.views = c.views = 3;
  a.noise = b.noise = c.noise = 0.004;
  a.seed = b.seed = 5;
  c.seed = 6;
  b.out_dir = scratch("seed_b");
  c.out_dir = scratch("seed_c");
  write_scene(s, a);
  write_scene(s, b);
  write_scene(s, c);
  for (int v = 0; v < 3; ++v) {
    EXPECT_EQ(slurp(a.out_dir + "/" + depth_file_name(v)), slurp(b.out_dir + "/" + depth_file_name(v)));
    EXPECT_EQ(slurp(a.out_dir + "/" + image_file_name(v)), slurp(b.out_dir + "/" + image_file_name(v)));
    EXPECT_EQ(slurp(a.out_dir + "/" + image_file_name(v)), slurp(c.out_dir + "/" + image_file_name(v)));
    ViewFile va = read_view_file(a.out_dir + "/" + view_file_name(v));
    ViewFile vb = read_view_file(b.out_dir + "/" + view_file_name(v));
    EXPECT_EQ(std::memcmp(va.R, vb.R, sizeof va.R), 0);
    EXPECT_NE(slurp(a.out_dir + "/" + depth_file_name(v)), slurp(c.out_dir + "/" + depth_file_name(v)));
  }
  EXPECT_EQ(slurp(a.out_dir + "/ground_truth.ply"), slurp(b.out_dir + "/ground_truth.ply"));
  EXPECT_EQ(slurp(a.out_dir + "/average_depth.txt"), slurp(b.out_dir + "/average_depth.txt"));
}

// The noise, divided by depth squared, has the same spread near and far.
TEST(SceneGenerator, NoiseGrowsWithDepthSquared) {
  const Scene s = make_default_scene();
  CameraRing ring;
  ring.width = 200;
  ring.height = 150;
  const SceneCamera camera = make_cameras(s, ring)[2];
  const RenderedView exact = render_view(s, camera, 2, 0.0, 3);
  EXPECT_EQ(exact.measured, exact.depth);
  const RenderedView noisy = render_view(s, camera, 2, 0.003, 3);
  EXPECT_EQ(noisy.depth, exact.depth);
  double sum[2] = {}, sum2[2] = {};
  int n[2] = {};
  for (size_t i = 0; i < noisy.depth.size(); ++i) {
    const double z = noisy.depth[i];
    if (z == 0 || (z > 2.6 && z < 3.2)) continue;
    const int bin = z < 2.6 ? 0 : 1;
    const double r = (noisy.measured[i] - z) / (z * z);
    sum[bin] += r;
    sum2[bin] += r * r;
    ++n[bin];
  }
  for (int bin = 0; bin < 2; ++bin) {
    ASSERT_GT(n[bin], 2000) << bin;
    EXPECT_NEAR(sum[bin] / n[bin], 0.0, 0.0002) << bin;
    EXPECT_NEAR(std::sqrt(sum2[bin] / n[bin]), 0.003, 0.00015) << bin;
  }
}

// 16-bit samples are stored big-endian in the file, as PNG requires; a 1 x 1 image makes every
// row filter leave the bytes as they are.
TEST(SceneGenerator, DepthPngStoresBigEndianSamples) {
  const std::string path = scratch("png") + "/one.png";
  write_png_gray16(path, 1, 1, {0x1234});
  const std::string file = slurp(path);
  const size_t idat = file.find("IDAT");
  ASSERT_NE(idat, std::string::npos);
  const uint32_t length = (uint8_t(file[idat - 4]) << 24) | (uint8_t(file[idat - 3]) << 16) |
                          (uint8_t(file[idat - 2]) << 8) | uint8_t(file[idat - 1]);
  unsigned char raw[8];
  uLongf raw_size = sizeof raw;
  ASSERT_EQ(uncompress(raw, &raw_size, reinterpret_cast<const Bytef*>(file.data() + idat + 4), length), Z_OK);
  ASSERT_EQ(raw_size, 3u);
  EXPECT_EQ(raw[1], 0x12);
  EXPECT_EQ(raw[2], 0x34);

  const std::vector<uint16_t> values{0, 1, 255, 256, 1000, 65535};
  write_png_gray16(path, 3, 2, values);
  EXPECT_EQ(read_png_gray16(path).values, values);
  EXPECT_THROW(read_png_rgb8(path), std::runtime_error);
  std::ofstream(path, std::ios::binary) << file.substr(0, file.size() / 2);
  EXPECT_THROW(read_png_gray16(path), std::runtime_error);
}

TEST(SceneGenerator, Arguments) {
  using A = ParsedArguments::Action;
  const ParsedArguments ok =
      parse_scene_arguments({"--out", "d", "--views=5", "--width", "100", "--height", "80", "--noise", "0.01",
                             "--seed", "9"});
  ASSERT_EQ(ok.action, A::run);
  EXPECT_EQ(ok.options.out_dir, "d");
  EXPECT_EQ(ok.options.views, 5);
  EXPECT_EQ(ok.options.width, 100);
  EXPECT_EQ(ok.options.height, 80);
  EXPECT_EQ(ok.options.noise, 0.01);
  EXPECT_EQ(ok.options.seed, 9u);
  const ParsedArguments defaults = parse_scene_arguments({"--out", "d"});
  EXPECT_EQ(defaults.options.views, 8);
  EXPECT_EQ(defaults.options.width, 640);
  EXPECT_EQ(defaults.options.height, 480);
  EXPECT_EQ(defaults.options.noise, 0.0);
  EXPECT_EQ(defaults.options.seed, 1u);
  EXPECT_EQ(parse_scene_arguments({"--out", "d", "--help"}).action, A::help);

  const std::vector<std::pair<std::vector<std::string>, std::string>> bad = {
      {{}, "--out DIR is required"},
      {{"--out"}, "option --out needs a value"},
      {{"--out", "d", "--views", "1"}, "--views needs an integer from 2 to 1000, got '1'"},
      {{"--out", "d", "--width", "12x"}, "--width needs an integer from 8 to 16384, got '12x'"},
      {{"--out", "d", "--height=7"}, "--height needs an integer from 8 to 16384, got '7'"},
      {{"--out", "d", "--noise", "-0.1"}, "--noise needs a number of at least 0, got '-0.1'"},
      {{"--out", "d", "--noise", "nan"}, "--noise needs a number of at least 0, got 'nan'"},
      {{"--out", "d", "--seed", "-3"}, "--seed needs a non-negative integer, got '-3'"},
      {{"--out", "d", "--colour", "red"}, "unknown option '--colour'"},
      {{"extra"}, "unknown option 'extra'"},
  };
  for (const auto& [args, message] : bad) {
    const ParsedArguments r = parse_scene_arguments(args);
    EXPECT_EQ(r.action, A::error);
    EXPECT_EQ(r.error, message);
  }
}

// The true samples themselves are exact and complete; samples pushed off along their normals by
// twice the tolerance are neither.
TEST(SceneGenerator, AccuracyAndCompletenessMeasures) {
  const Scene s = make_default_scene();
  CameraRing ring;
  ring.width = 64;
  ring.height = 48;
  const std::vector<SceneCamera> cameras = make_cameras(s, ring);
  const std::vector<SurfaceSample> truth = ground_truth_samples(s, cameras, 2);
  const std::vector<SurfaceSample> first_view = ground_truth_samples(s, {cameras[0]}, 2);
  std::vector<Vec3> exact, pushed, partial;
  for (const SurfaceSample& t : truth) {
    exact.push_back(t.point);
    pushed.push_back(t.point + 0.02 * t.normal);
  }
  for (const SurfaceSample& t : first_view) partial.push_back(t.point);

  const Accuracy a = measure_accuracy(s, exact, 0.01);
  EXPECT_EQ(a.points, truth.size());
  EXPECT_LT(a.max, 1e-9);
  EXPECT_EQ(a.within, 1.0);
  EXPECT_EQ(measure_completeness(truth, exact, 0.01), 1.0);

  const Accuracy b = measure_accuracy(s, pushed, 0.01);
  EXPECT_NEAR(b.median, 0.02, 1e-9);
  EXPECT_LT(b.within, 0.05);  // only where another surface comes near, as at the thin sheet
  EXPECT_LT(measure_completeness(truth, pushed, 0.01), 0.05);

  const double c = measure_completeness(truth, partial, 0.01);
  EXPECT_GT(c, 0.1);
  EXPECT_LT(c, 0.5);
}

#ifdef QUILLARA_SCENE_BIN
namespace {

struct RunResult {
  int status = -1;
  std::string out, err;
};

RunResult run_scene_program(const std::string& args, const std::string& dir) {
  const std::string command =
      std::string(QUILLARA_SCENE_BIN) + " " + args + " >" + dir + "/stdout.txt 2>" + dir + "/stderr.txt";
  const int raw = std::system(command.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(dir + "/stdout.txt"), slurp(dir + "/stderr.txt")};
}

}  // namespace

TEST(SceneGeneratorProgram, WritesAllFilesOfASmallScene) {
  const std::string logs = scratch("program_logs");
  const std::string out = scratch("program") + "/scene";
  const RunResult r = run_scene_program("--out " + out + " --views 3 --width 64 --height 48", logs);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  const std::string first_line = r.out.substr(0, r.out.find('\n') + 1);
  EXPECT_EQ(first_line, "quillara-scene: 3 views of 64 x 48 pixels in " +
                            fs::absolute(out).lexically_normal().string() + "\n");

  std::set<std::string> files;
  for (const auto& e : fs::directory_iterator(out)) files.insert(e.path().filename().string());
  EXPECT_EQ(files, (std::set<std::string>{"average_depth.txt", "depth_00.png", "depth_01.png", "depth_02.png",
                                          "ground_truth.ply", "image_00.png", "image_01.png", "image_02.png",
                                          "view_00.txt", "view_01.txt", "view_02.txt"}));

  // The average depth is the mean of the true depths, which the millimetre PNGs match closely.
  double sum = 0;
  int count = 0;
  for (int v = 0; v < 3; ++v) {
    const Png16 depth = read_png_gray16(out + "/" + depth_file_name(v));
    EXPECT_EQ(read_png_rgb8(out + "/" + image_file_name(v)).rgb.size(), 64u * 48u * 3u);
    for (uint16_t mm : depth.values)
      if (mm) sum += mm / 1000.0, ++count;
  }
  EXPECT_NEAR(std::stod(slurp(out + "/average_depth.txt")), sum / count, 0.0005);

  // Ground truth: header, then float triples of points on the surface and unit normals.
  const std::string ply = slurp(out + "/ground_truth.ply");
  const size_t body = ply.find("end_header\n") + 11;
  const size_t points = (ply.size() - body) / 24;
  EXPECT_EQ(ply.substr(0, body),
            "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(points) +
                "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\nproperty float ny\n"
                "property float nz\nend_header\n");
  ASSERT_EQ(body + points * 24, ply.size());
  EXPECT_GT(points, 3u * 16u * 12u / 2u);
  const Scene s = make_default_scene();
  for (size_t i = 0; i < points; ++i) {
    float f[6];
    std::memcpy(f, ply.data() + body + 24 * i, 24);
    const Vec3 p{f[0], f[1], f[2]}, n{f[3], f[4], f[5]};
    ASSERT_LT(distance_to_surface(s, p), 2e-6);
    ASSERT_NEAR(std::abs(dot(n, surface_normal(s, p))), 1.0, 1e-5);
  }
}

TEST(SceneGeneratorProgram, BadArgumentsAndHelp) {
  const std::string logs = scratch("program_errors");
  RunResult r = run_scene_program("--out " + logs + "/x --views 1", logs);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.out, "");
  EXPECT_EQ(r.err, "quillara-scene: --views needs an integer from 2 to 1000, got '1'\n"
                   "Run 'quillara-scene --help' for usage.\n");
  EXPECT_FALSE(fs::exists(logs + "/x"));

  std::ofstream(logs + "/file") << "x";
  r = run_scene_program("--out " + logs + "/file", logs);
  EXPECT_EQ(r.status, 1);
  EXPECT_EQ(r.err, "quillara-scene: write_scene: cannot create the directory " +
                       fs::absolute(logs + "/file").lexically_normal().string() + "\n");

  r = run_scene_program("--help", logs);
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, scene_usage());
}
#endif
