// The pieces of a tiled run: memory sizes, the tile planner, superpixel labels, the files tile
// jobs share (results, scaffold, plan) and the streamed merge.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "src/io/model_output.h"
#include "src/tiles/memory_size.h"
#include "src/tiles/superpixel_labels.h"
#include "src/tiles/tile_files.h"
#include "src/tiles/tile_plan.h"
#include "tests/support/io_test_support.h"
#include "tests/support/particle_cloud.h"
#include "tools/tiles/plan_file.h"

namespace fs = std::filesystem;

namespace {

TEST(MemorySize, ReadsBytesWithUnitsAndPrintsNeverBelowTheTrueSize) {
  EXPECT_EQ(parse_memory_size("8G"), 8ull << 30);
  EXPECT_EQ(parse_memory_size("512m"), 512ull << 20);
  EXPECT_EQ(parse_memory_size("3K"), 3072u);
  EXPECT_EQ(parse_memory_size("1000"), 1000u);
  for (const char* bad : {"", "0", "0G", "-1G", "8X", "8GB", "1.5G", "G", "99999999999999999999", "20000000000G"})
    EXPECT_FALSE(parse_memory_size(bad)) << bad;
  EXPECT_EQ(format_memory_size(8ull << 30), "8G");
  EXPECT_EQ(format_memory_size((3ull << 29)), "1.5G");
  EXPECT_EQ(format_memory_size((10ull << 20) + 1), "10.1M");  // rounded up, never down
  EXPECT_EQ(format_memory_size((100ull << 20) + 1), "101M");
  EXPECT_EQ(format_memory_size(999), "999");
}

// Samples along a street 40 units long, 2 wide and 1 high, with a dense knot at one end.
std::vector<float3> street_samples() {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> u(0.0f, 1.0f);
  std::vector<float3> samples;
  for (int i = 0; i < 20000; ++i) samples.push_back({40.0f * u(random), 2.0f * u(random), u(random)});
  for (int i = 0; i < 5000; ++i) samples.push_back({0.5f * u(random), 0.5f * u(random), 0.5f * u(random)});
  return samples;
}

TEST(TilePlan, CoresPartitionSpaceAndHalosFitTheCapacity) {
  const std::vector<float3> samples = street_samples();
  const float halo = 0.05f;
  const std::uint64_t capacity = 4 * 3000;  // each sample stands for 4 particles
  std::vector<Tile> tiles = plan_tiles(samples, 4.0, capacity, 3, halo);
  EXPECT_GE(tiles.size(), 9u);  // 100,000 particles in tiles of at most 12,000
  for (const Tile& t : tiles) {
    std::uint64_t in_halo = 0;
    for (const float3& p : samples) in_halo += t.halo.contains(p);
    EXPECT_LE(4 * in_halo, capacity);
    EXPECT_EQ(t.particles, 4 * in_halo);
  }
  for (const float3& p : samples) {
    int cores = 0;
    for (const Tile& t : tiles) cores += t.core.contains(p);
    ASSERT_EQ(cores, 1);
  }
  // Points far outside every sample still land in exactly one core.
  for (const float3 far : {float3{-1e6f, 0, 0}, float3{1e6f, -1e6f, 1e6f}}) {
    int cores = 0;
    for (const Tile& t : tiles) cores += t.core.contains(far);
    EXPECT_EQ(cores, 1);
  }
  // A view whose starting box reaches a tile's halo is listed in it; one that starts no particle
  // in none.
  SpaceBox near_start = empty_box(), nowhere = empty_box();
  include_point(near_start, {0.1f, 0.1f, 0.1f});
  assign_views(tiles, {near_start, nowhere});
  int listing = 0;
  for (const Tile& t : tiles) {
    listing += !t.views.empty();
    for (int v : t.views) EXPECT_EQ(v, 0);
  }
  EXPECT_GE(listing, 1);
}

TEST(TilePlan, AskedTileCountAndTheLimitOfCutting) {
  const std::vector<float3> samples = street_samples();
  EXPECT_EQ(plan_tiles(samples, 1.0, UINT64_MAX, 1, 0.1f).size(), 1u);
  EXPECT_EQ(plan_tiles(samples, 1.0, UINT64_MAX, 5, 0.1f).size(), 5u);
  // 1,000 particles on one spot cannot be cut into tiles of 10.
  const std::vector<float3> knot(1000, float3{1, 2, 3});
  try {
    plan_tiles(knot, 1.0, 10, 1, 0.1f);
    FAIL() << "no error";
  } catch (const TilePlanError& e) {
    EXPECT_EQ(e.needed_particles, 1000u);
  }
}

TEST(SuperpixelLabels, KeepEveryPixelOfEverySuperpixelInRowOrder) {
  const int width = 7, height = 5;
  std::vector<Superpixel> superpixels(4);  // superpixel 2 stays empty; pixels with x = 6 belong to none
  for (int y = 0; y < height; ++y)
    for (int x = 0; x < 6; ++x) superpixels[(x / 3 + 2 * (y / 3)) % 4 == 2 ? 3 : (x / 3 + 2 * (y / 3)) % 4].pixels.push_back({x, y});
  const SuperpixelLabels labels = label_superpixels(superpixels, width, height);
  EXPECT_LT(labels.runs.size(), 2u * width * height / 2);  // runs, not pixels
  const std::vector<Superpixel> back = superpixels_from_labels(labels);
  ASSERT_EQ(back.size(), superpixels.size());
  for (std::size_t s = 0; s < back.size(); ++s) EXPECT_EQ(back[s].pixels, superpixels[s].pixels) << s;
}

// Three particles of two views with distinct offsets, normals and colours.
TileModel model_of(int first) {
  TileModel m;
  for (int i = first; i < first + 3; ++i) {
    Particle p = cloud::particle({0.1f * i, -0.2f * i, 1.0f + i}, {0.0f, 0.6f, 0.8f}, 0, 0.001f * (i + 1));
    p.color = {static_cast<unsigned char>(10 * i), 200, static_cast<unsigned char>(255 - i), 255};
    m.particles.push_back(p);
    m.offsets.push_back(0.01f * i - 0.02f);
    m.normals.push_back({0.0f, 0.0f, i % 2 ? 1.0f : -1.0f});
  }
  return m;
}

TEST(TileFiles, MergedResultsAreTheModelFileOfAllTheirPoints) {
  const std::string dir = io_test::fresh_scratch_dir();
  const TileModel a = model_of(0), b = model_of(3);
  write_tile_result(dir + "/a.bin", a);
  write_tile_result(dir + "/b.bin", b);
  EXPECT_EQ(tile_result_points(dir + "/b.bin"), 3u);
  merge_tile_results({dir + "/a.bin", dir + "/b.bin"}, dir + "/merged.ply", PlyColorNames::standard);
  TileModel all = a;
  all.particles.insert(all.particles.end(), b.particles.begin(), b.particles.end());
  all.offsets.insert(all.offsets.end(), b.offsets.begin(), b.offsets.end());
  all.normals.insert(all.normals.end(), b.normals.begin(), b.normals.end());
  writeParticlesToPLY(all.particles, all.offsets, all.normals, dir + "/whole.ply", PlyColorNames::standard);
  EXPECT_EQ(io_test::read_bytes(dir + "/merged.ply"), io_test::read_bytes(dir + "/whole.ply"));

  // A cut-off result, or another file, counts as missing and the merge writes nothing.
  const std::string bytes = io_test::read_bytes(dir + "/b.bin");
  io_test::write_bytes(dir + "/cut.bin", bytes.substr(0, bytes.size() - 1));
  io_test::write_bytes(dir + "/other.bin", "ply\nformat");
  for (const char* bad : {"/cut.bin", "/other.bin", "/gone.bin"}) {
    EXPECT_THROW(tile_result_points(dir + bad), TileFileError) << bad;
    EXPECT_THROW(merge_tile_results({dir + "/a.bin", dir + bad}, dir + "/failed.ply", PlyColorNames::diffuse),
                 TileFileError);
  }
  EXPECT_FALSE(fs::exists(dir + "/failed.ply"));
}

TEST(TileFiles, ScaffoldComesBackAsWritten) {
  const std::string dir = io_test::fresh_scratch_dir();
  Scaffold s;
  const TileModel m = model_of(1);
  s.particles = m.particles;
  s.offsets = m.offsets;
  s.normals = m.normals;
  s.cameras.resize(2);
  s.cameras[1].K[0] = 525.0f;
  s.cameras[1].center[2] = -2.5f;
  s.cameras[1].index = 1;
  s.cameras[1].width = 7;
  std::vector<Superpixel> sp(2);
  sp[1].pixels = {{0, 0}, {1, 0}};
  s.labels = {label_superpixels(sp, 2, 1), label_superpixels({}, 3, 1)};
  s.input_pixels = 12;
  s.input_max = 4.5f;
  s.view_maxima = {4.5f, 3.0f};
  write_scaffold(dir + "/scaffold.bin", s);
  const Scaffold back = read_scaffold_file(dir + "/scaffold.bin");
  EXPECT_EQ(back.particles.size(), 3u);
  EXPECT_EQ(std::memcmp(back.particles.data(), s.particles.data(), 3 * sizeof(Particle)), 0);
  EXPECT_EQ(back.offsets, s.offsets);
  EXPECT_EQ(back.cameras[1].K[0], 525.0f);
  EXPECT_EQ(back.cameras[1].center[2], -2.5f);
  EXPECT_EQ(back.cameras[1].width, 7);
  EXPECT_EQ(back.labels[0].runs, s.labels[0].runs);
  EXPECT_EQ(back.labels[1].width, 3);
  EXPECT_EQ(back.input_pixels, 12u);
  EXPECT_EQ(back.view_maxima, s.view_maxima);
  const std::string bytes = io_test::read_bytes(dir + "/scaffold.bin");
  io_test::write_bytes(dir + "/cut.bin", bytes.substr(0, bytes.size() / 2));
  EXPECT_THROW(read_scaffold_file(dir + "/cut.bin"), TileFileError);
}

TEST(PlanFile, ComesBackExactlyAndNoticesChangedViews) {
  const std::string dir = io_test::fresh_scratch_dir();
  io_test::write_bytes(dir + "/image.png", "image");
  io_test::write_bytes(dir + "/view.txt", "1 0 0 0 1 0 0 0 1 1 0 0 0 1 0 0 0 1 0 0 0 4 4 " + dir + "/image.png " + dir +
                                              "/depth.png\n");
  tiles::PlanFile plan;
  plan.arguments = {"--depth-avg", "2.5", "--", "view \"one\".txt"};
  plan.working_directory = dir;
  plan.budget = 8ull << 30;
  plan.depth_range_max = 5.93699980f;
  plan.halo = 0.105477057f;
  plan.stride = 10;
  plan.views = {tiles::stamp_view(dir + "/view.txt")};
  Tile t;
  t.core.hi[0] = 1.0f / 3.0f;
  t.halo = t.core.grown(plan.halo);
  t.views = {0};
  t.particles = 123456789012ull;
  plan.tiles = {t};
  plan.tile_bytes = {1ull << 33};
  const tiles::PlanFile back = tiles::parse_plan(tiles::format_plan(plan));
  EXPECT_EQ(back.arguments, plan.arguments);
  EXPECT_EQ(back.depth_range_max, plan.depth_range_max);
  EXPECT_EQ(back.halo, plan.halo);
  EXPECT_EQ(back.stride, 10);
  ASSERT_EQ(back.tiles.size(), 1u);
  EXPECT_EQ(back.tiles[0].core.hi[0], 1.0f / 3.0f);
  EXPECT_TRUE(std::isinf(back.tiles[0].core.lo[0]) && back.tiles[0].core.lo[0] < 0);
  EXPECT_EQ(back.tiles[0].halo.lo[1], t.halo.lo[1]);
  EXPECT_EQ(back.tiles[0].particles, t.particles);
  EXPECT_EQ(back.tile_bytes[0], 1ull << 33);
  EXPECT_THROW(tiles::parse_plan("{\"format\": \"quillara tile plan 1\", "), std::runtime_error);

  // The view stands as planned; the depth map never existed, so its stamp is the path alone.
  ASSERT_EQ(back.views[0].stamps.size(), 3u);
  EXPECT_EQ(tiles::view_change(back.views[0]), "\"" + dir + "/depth.png\" has vanished");
  tiles::PlannedView two = back.views[0];
  two.stamps.pop_back();
  EXPECT_EQ(tiles::view_change(two), "");
  io_test::write_bytes(dir + "/image.png", "another image");
  EXPECT_EQ(tiles::view_change(two), "\"" + dir + "/image.png\" has changed");
  fs::remove(dir + "/view.txt");
  EXPECT_EQ(tiles::view_change(two), "\"" + dir + "/view.txt\" has vanished");
}

}  // namespace
