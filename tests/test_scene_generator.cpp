#include <gtest/gtest.h>
#include <zlib.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "tests/io_test_support.h"
#include "tests/run_process.h"
#include "tools/scene/png_io.h"
#include "tools/scene/ray_cast.h"
#include "tools/scene/render_view.h"
#include "tools/scene/scene_arguments.h"
#include "tools/scene/scene_files.h"
#include "tools/scene/surface_distance.h"
#include "tools/scene/surface_error.h"

namespace fs = std::filesystem;
using io_test::read_bytes;
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

std::vector<SceneCamera> ring_cameras(const Scene& s, int width, int height) {
  CameraRing ring;
  ring.width = width;
  ring.height = height;
  return make_cameras(s, ring);
}

std::string absolute(const std::string& path) { return fs::absolute(path).lexically_normal().string(); }

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

TEST(SceneGenerator, ViewFileHasTwentyFiveTokensWithAbsolutePaths) {
  const SceneOptions o = small_options("view_file", 64, 48, 2);
  write_scene(make_default_scene(), o);
  for (int v = 0; v < o.views; ++v) {
    std::istringstream in(read_bytes(o.out_dir + "/" + view_file_name(v)));
    const std::vector<std::string> tokens{std::istream_iterator<std::string>(in), {}};
    ASSERT_EQ(tokens.size(), 25u);
    EXPECT_EQ(std::vector<std::string>(tokens.begin() + 21, tokens.end()),
              (std::vector<std::string>{"64", "48", absolute(o.out_dir + "/" + image_file_name(v)),
                                        absolute(o.out_dir + "/" + depth_file_name(v))}));
    EXPECT_TRUE(fs::exists(tokens[23]) && fs::exists(tokens[24]));
  }
}

TEST(SceneGenerator, AnalyticDistanceAndNormal) {
  const Scene s = make_default_scene();
  const Shape& sheet = s.shapes[find_shape(s, "sheet")];
  EXPECT_NEAR(distance_to_surface(s, Vec3{-1.9, 1.9, 0.1}), 0.1, 1e-12);
  EXPECT_NEAR(distance_to_surface(s, Vec3{0, 3.2, 0}), 1.0, 1e-12);  // beyond the ground's edge
  EXPECT_NEAR(distance_to_surface(s, s.shapes[find_shape(s, "sphere")].center), 0.35, 1e-12);
  EXPECT_NEAR(distance_to_surface(s, sheet.center), 0.002, 1e-12);
  const Vec3 side = sheet.axes * Vec3{1, 0, 0};
  EXPECT_NEAR(distance_to_surface(s, sheet.center + 0.05 * side), 0.048, 1e-12);
  EXPECT_NEAR(dot(surface_normal(s, sheet.center + 0.05 * side), side), 1.0, 1e-12);
  EXPECT_NEAR(dot(surface_normal(s, sheet.center - 0.05 * side), side), -1.0, 1e-12);
  EXPECT_NEAR(distance_to_surface(s, s.shapes[find_shape(s, "rod_0")].center + Vec3{0.05, 0, 0}), 0.0425, 1e-12);
  EXPECT_EQ(surface_normal(s, make_float3(-1.9f, 1.9f, 0.1f)).z, 1.0f);
}

// Every ray hit lies on the analytic surface, and its normal is that surface's normal.
TEST(SceneGenerator, RayHitsAgreeWithDistanceAndNormal) {
  const Scene s = make_default_scene();
  int hits = 0;
  for (const SceneCamera& c : ring_cameras(s, 80, 60))
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
  std::vector<std::set<int>> seen_by(s.shapes.size());
  std::set<int> faces_seen[2];
  const std::vector<SceneCamera> cameras = ring_cameras(s, 160, 120);
  for (int v = 0; v < static_cast<int>(cameras.size()); ++v) {
    const RenderedView r = render_view(s, cameras[v], v, 0.0, 1);
    std::vector<int> count(s.shapes.size()), faces(2);
    for (int y = 0; y < r.height; ++y)
      for (int x = 0; x < r.width; ++x) {
        const int shape = r.shape[y * r.width + x];
        if (shape < 0) continue;
        ++count[shape];
        if (shape == sheet)
          ++faces[cast_ray(s, cameras[v].center, pixel_direction(cameras[v], x, y)).local_normal.x > 0 ? 0 : 1];
      }
    for (size_t k = 0; k < count.size(); ++k)
      if (count[k] >= 3) seen_by[k].insert(v);
    for (int f = 0; f < 2; ++f)
      if (faces[f] >= 20) faces_seen[f].insert(v);
  }
  for (size_t k = 0; k < s.shapes.size(); ++k) EXPECT_GE(seen_by[k].size(), 3u) << s.shapes[k].name;
  EXPECT_GE(faces_seen[0].size(), 2u);
  EXPECT_GE(faces_seen[1].size(), 2u);
}

TEST(SceneGenerator, SameSeedGivesIdenticalFilesOtherSeedOtherDepths) {
  const Scene s = make_default_scene();
  SceneOptions a = small_options("a", 48, 40, 3), b = small_options("b", 48, 40, 3), c = small_options("c", 48, 40, 3);
  a.noise = b.noise = c.noise = 0.004;
  a.seed = b.seed = 5;
  c.seed = 6;
  for (const SceneOptions* o : {&a, &b, &c}) write_scene(s, *o);
  auto same = [&](const SceneOptions& x, const std::string& name) {
    return read_bytes(a.out_dir + "/" + name) == read_bytes(x.out_dir + "/" + name);
  };
  for (int v = 0; v < 3; ++v) {
    for (const std::string& name : {depth_file_name(v), image_file_name(v)}) EXPECT_TRUE(same(b, name)) << name;
    const ViewFile va = read_view_file(a.out_dir + "/" + view_file_name(v)),
                   vb = read_view_file(b.out_dir + "/" + view_file_name(v));
    EXPECT_EQ(std::memcmp(va.R, vb.R, sizeof va.R), 0);
    EXPECT_TRUE(same(c, image_file_name(v)));
    EXPECT_FALSE(same(c, depth_file_name(v)));
  }
  EXPECT_TRUE(same(b, "ground_truth.ply"));
  EXPECT_TRUE(same(b, "average_depth.txt"));
}

// The noise, divided by depth squared, has the same spread near and far.
TEST(SceneGenerator, NoiseGrowsWithDepthSquared) {
  const Scene s = make_default_scene();
  const SceneCamera camera = ring_cameras(s, 200, 150)[2];
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
  const std::string path = scratch_path("one.png");
  write_png_gray16(path, 1, 1, {0x1234});
  const std::string file = read_bytes(path);
  const size_t idat = file.find("IDAT");
  ASSERT_NE(idat, std::string::npos);
  uint32_t length = 0;
  for (int k = 4; k >= 1; --k) length = (length << 8) | uint8_t(file[idat - k]);
  unsigned char raw[8];
  uLongf raw_size = sizeof raw;
  ASSERT_EQ(uncompress(raw, &raw_size, reinterpret_cast<const Bytef*>(file.data() + idat + 4), length), Z_OK);
  EXPECT_EQ(std::vector<int>(raw + 1, raw + raw_size), (std::vector<int>{0x12, 0x34}));

  const std::vector<uint16_t> values{0, 1, 255, 256, 1000, 65535};
  write_png_gray16(path, 3, 2, values);
  EXPECT_EQ(read_png_gray16(path).values, values);
  EXPECT_THROW(read_png_rgb8(path), std::runtime_error);
  std::ofstream(path, std::ios::binary) << file.substr(0, file.size() / 2);
  EXPECT_THROW(read_png_gray16(path), std::runtime_error);
}

TEST(SceneGenerator, Arguments) {
  using A = ParsedArguments::Action;
  const ParsedArguments ok = parse_scene_arguments(
      {"--out", "d", "--views=5", "--width", "100", "--height", "80", "--noise", "0.01", "--seed", "9"});
  const SceneOptions& o = ok.options;
  EXPECT_EQ(std::make_tuple(ok.action, o.out_dir, o.views, o.width, o.height, o.noise, o.seed),
            std::make_tuple(A::run, std::string("d"), 5, 100, 80, 0.01, uint64_t{9}));
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
  const std::vector<SceneCamera> cameras = ring_cameras(s, 64, 48);
  const std::vector<SurfaceSample> truth = ground_truth_samples(s, cameras, 2);
  std::vector<Vec3> exact, pushed, partial;
  for (const SurfaceSample& t : truth) {
    exact.push_back(t.point);
    pushed.push_back(t.point + 0.02 * t.normal);
  }
  for (const SurfaceSample& t : ground_truth_samples(s, {cameras[0]}, 2)) partial.push_back(t.point);

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
TEST(SceneGeneratorProgram, WritesAllFilesOfASmallScene) {
  const std::string out = scratch_path("scene");
  fs::remove_all(out);
  const e2e::Result r = e2e::run(QUILLARA_SCENE_BIN, io_test::scratch_dir(),
                                 {"--out", out, "--views", "3", "--width", "64", "--height", "48"});
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out.substr(0, r.out.find('\n') + 1),
            "quillara-scene: 3 views of 64 x 48 pixels in " + absolute(out) + "\n");

  std::set<std::string> files;
  for (const auto& e : fs::directory_iterator(out)) files.insert(e.path().filename().string());
  EXPECT_EQ(files, (std::set<std::string>{"average_depth.txt", "depth_00.png", "depth_01.png", "depth_02.png",
                                          "ground_truth.ply", "image_00.png", "image_01.png", "image_02.png",
                                          "view_00.txt", "view_01.txt", "view_02.txt"}));

  // The average depth is the mean of the true depths, which the millimetre PNGs match closely.
  double sum = 0;
  int count = 0;
  for (int v = 0; v < 3; ++v) {
    EXPECT_EQ(read_png_rgb8(out + "/" + image_file_name(v)).rgb.size(), 64u * 48u * 3u);
    for (uint16_t mm : read_png_gray16(out + "/" + depth_file_name(v)).values)
      if (mm) sum += mm / 1000.0, ++count;
  }
  EXPECT_NEAR(std::stod(read_bytes(out + "/average_depth.txt")), sum / count, 0.0005);

  // Ground truth: header, then float triples of points on the surface and unit normals.
  const std::string ply = read_bytes(out + "/ground_truth.ply");
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
  const std::string dir = io_test::scratch_dir();
  fs::remove_all(dir + "/x");
  EXPECT_EQ(e2e::run(QUILLARA_SCENE_BIN, dir, {"--out", "x", "--views", "1"}),
            (e2e::Result{"",
                         "quillara-scene: --views needs an integer from 2 to 1000, got '1'\n"
                         "Run 'quillara-scene --help' for usage.\n",
                         1}));
  EXPECT_FALSE(fs::exists(dir + "/x"));
  std::ofstream(dir + "/file") << "x";
  EXPECT_EQ(e2e::run(QUILLARA_SCENE_BIN, dir, {"--out", dir + "/file"}),
            (e2e::Result{
                "", "quillara-scene: write_scene: cannot create the directory " + absolute(dir + "/file") + "\n", 1}));
  EXPECT_EQ(e2e::run(QUILLARA_SCENE_BIN, dir, {"--help"}), (e2e::Result{scene_usage(), "", 0}));
}
#endif
