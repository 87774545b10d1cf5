#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "device/vector_math.h"
#include "src/io/model_output.h"
#include "src/io/remove_on_signal.h"
#include "src/io/temporary_file.h"
#include "tests/support/io_test_support.h"
#include "tests/support/particle_cloud.h"
#include "tests/support/run_process.h"

using io_test::read_bytes;
using io_test::scratch_path;

namespace {

std::string model_header(std::size_t count, const std::string& colour_prefix = "diffuse_") {
  return "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(count) +
         "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\nproperty float ny\n"
         "property float nz\nproperty uchar " + colour_prefix + "red\nproperty uchar " + colour_prefix +
         "green\nproperty uchar " + colour_prefix + "blue\nproperty float psz\nend_header\n";
}

// One vertex record: x y z nx ny nz as float, red green blue as uchar, psz as float (no alpha).
constexpr std::size_t kRecordSize = 6 * 4 + 3 + 4;

std::vector<float> floats_of(const std::string& bytes, std::size_t at) {
  std::vector<float> v(7);
  for (int k = 0; k < 7; ++k) std::memcpy(&v[k], bytes.data() + at + (k < 6 ? 4 * k : 27), 4);
  return v;
}

std::vector<int> colour_of(const std::string& bytes, std::size_t at) {
  return {static_cast<unsigned char>(bytes[at + 24]), static_cast<unsigned char>(bytes[at + 25]),
          static_cast<unsigned char>(bytes[at + 26])};
}

Particle make_particle(uchar4 color, float radius, float3 pos = make_float3(1.0f, 2.0f, 3.0f)) {
  Particle p = cloud::particle(pos, make_float3(0.0f, 0.6f, 0.8f), 0, radius);
  p.color = color;
  return p;
}

constexpr const char* kConverter = "/usr/bin/pcl_ply2pcd";

struct Cloud {
  std::map<std::string, std::size_t> column;  // field name to column
  std::vector<std::vector<double>> rows;
};

// The text point-cloud file: a FIELDS line naming the columns, then one row per point after DATA.
Cloud read_text_cloud(const std::string& path) {
  Cloud cloud;
  std::ifstream in(path);
  std::string line;
  bool data = false;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    if (data) {
      std::vector<double> row;
      for (double v; words >> v;) row.push_back(v);
      cloud.rows.push_back(row);
      continue;
    }
    std::string key;
    words >> key;
    if (key == "FIELDS")
      for (std::string name; words >> name;) cloud.column.emplace(name, cloud.column.size());
    data = key == "DATA";
  }
  return cloud;
}

}  // namespace

TEST(ModelOutput, WritesHeaderAndVerticesAtTheirCurrentPositions) {
  const std::string path = scratch_path("model.ply");
  // Same ray, different offsets: different points.
  const std::vector<Particle> particles = {make_particle(make_uchar4(10, 20, 30, 40), 0.25f),
                                           make_particle(make_uchar4(250, 0, 128, 77), 0.5f)};
  writeParticlesToPLY(particles, {0.0f, -2.5f}, {make_float3(0, 0, 1), make_float3(0.6f, -0.8f, 0)}, path);
  const std::string bytes = read_bytes(path);
  const std::string header = model_header(2);
  ASSERT_EQ(bytes.size(), header.size() + 2 * kRecordSize);
  EXPECT_EQ(bytes.substr(0, header.size()), header);
  const std::size_t a = header.size(), b = a + kRecordSize;
  EXPECT_EQ(floats_of(bytes, a), (std::vector<float>{1, 2, 3, 0, 0, 1, 0.25f}));
  EXPECT_EQ(floats_of(bytes, b), (std::vector<float>{1, 2.0f + -2.5f * 0.6f, 3.0f + -2.5f * 0.8f, 0.6f, -0.8f, 0, 0.5f}));
  EXPECT_EQ(colour_of(bytes, a), (std::vector<int>{10, 20, 30}));
  EXPECT_EQ(colour_of(bytes, b), (std::vector<int>{250, 0, 128}));

  // The standard colour names change the header and nothing else.
  const std::string standard = scratch_path("standard.ply");
  writeParticlesToPLY(particles, {0.0f, -2.5f}, {make_float3(0, 0, 1), make_float3(0.6f, -0.8f, 0)}, standard,
                      PlyColorNames::standard);
  EXPECT_EQ(read_bytes(standard), model_header(2, "") + bytes.substr(header.size()));

  writeParticlesToPLY({}, {}, {}, path);  // an existing file is replaced
  EXPECT_EQ(read_bytes(path), model_header(0));
}

// A failure is an error naming the file. That the earlier file stays whole and nothing is left
// beside it, also when the disk fills in the middle, the program's bad-input tests show end to end.
TEST(ModelOutput, FailureIsAnErrorNamingTheFile) {
  const std::string dir = io_test::scratch_dir();
  const std::vector<Particle> one = {make_particle(make_uchar4(1, 2, 3, 4), 1.0f)};
  io_test::expect_runtime_error([&] { writeParticlesToPLY(one, {0.0f}, {make_float3(0, 0, 1)}, dir + "/no/model.ply"); },
                                "cannot write model file \"" + dir + "/no/model.ply\": No such file or directory");
}

// A run stopped while a model is being written into a folder of partial results leaves neither
// behind, and still ends by the signal; a guard that ended stays ended, and an ignored signal
// stays ignored and removes nothing.
TEST(RemoveOnSignal, AStoppedRunLeavesNoTemporaryFileOrFolder) {
  const std::string dir = io_test::fresh_scratch_dir(), folder = dir + "/.tiles.1";
  EXPECT_EXIT(
      {
        RemoveOnSignal folder_guard(folder, RemoveOnSignal::Kind::folder);
        std::filesystem::create_directories(folder);
        for (int k = 0; k < 300; ++k) io_test::write_bytes(folder + "/tile_" + std::to_string(k) + ".bin", "x");
        std::optional<TemporaryFile> done(dir + "/done.ply");
        TemporaryFile model(dir + "/model.ply");
        done->commit(dir + "/done.ply");  // its guard ends before the newer one's
        done.reset();
        std::fprintf(stderr, "%s", model.path.c_str());
        std::raise(SIGTERM);
      },
      testing::KilledBySignal(SIGTERM), "model.ply.[0-9]+.part");
  EXPECT_EQ(e2e::file_names(dir), std::vector<std::string>{"done.ply"});

  EXPECT_EXIT(
      {
        std::signal(SIGHUP, SIG_IGN);
        TemporaryFile model(dir + "/model.ply");
        std::raise(SIGHUP);
        model.commit(dir + "/model.ply");
        std::exit(std::filesystem::exists(dir + "/model.ply") ? 3 : 4);
      },
      testing::ExitedWithCode(3), "");
}

// A model with the standard colour names, read by a point-cloud library's own PLY reader (its
// converter to the library's text format, from the Debian package pcl-tools).
TEST(PlyReader, AReaderThatWantsStandardNamesLoadsPositionsNormalsAndColours) {
  ASSERT_TRUE(std::filesystem::exists(kConverter)) << kConverter << " is missing: scripts/install-deps installs it";
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
  for (int i = 0; i < 50; ++i) {
    particles.push_back(make_particle(make_uchar4(5 * i, 255 - 3 * i, i * i % 256, 255), 0.001f * (i + 1),
                                      make_float3(0.1f * i, -0.25f * i, 2.0f + 0.01f * i)));
    offsets.push_back(0.5f * static_cast<float>(i % 3));
    normals.push_back(make_float3(std::cos(0.1f * i) * 0.6f, std::sin(0.1f * i) * 0.6f, -0.8f));
  }
  const std::string dir = io_test::scratch_dir();
  writeParticlesToPLY(particles, offsets, normals, dir + "/model.ply", PlyColorNames::standard);
  const e2e::Result r = e2e::run(kConverter, dir, {"-format", "0", "model.ply", "model.pcd"});
  ASSERT_EQ(r.status, 0) << r;

  const Cloud cloud = read_text_cloud(dir + "/model.pcd");
  for (const char* field : {"x", "y", "z", "normal_x", "normal_y", "normal_z", "rgb"})
    ASSERT_EQ(cloud.column.count(field), 1u) << field;
  ASSERT_EQ(cloud.rows.size(), particles.size());
  for (std::size_t i = 0; i < particles.size(); ++i) {
    SCOPED_TRACE(i);
    const std::vector<double>& row = cloud.rows[i];
    ASSERT_EQ(row.size(), cloud.column.size());
    const float3 p = particles[i].pos + offsets[i] * particles[i].dir;
    const double want[6] = {p.x, p.y, p.z, normals[i].x, normals[i].y, normals[i].z};
    const char* names[6] = {"x", "y", "z", "normal_x", "normal_y", "normal_z"};
    for (int k = 0; k < 6; ++k) EXPECT_NEAR(row[cloud.column.at(names[k])], want[k], 1e-5) << names[k];
    const uchar4 c = particles[i].color;  // packed as 0xRRGGBB
    EXPECT_EQ(static_cast<std::uint32_t>(row[cloud.column.at("rgb")]) & 0xffffffu, c.x << 16u | c.y << 8u | c.z);
  }
}
