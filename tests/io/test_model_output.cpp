#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "src/io/model_output.h"
#include "src/io/temporary_file.h"
#include "tests/support/io_test_support.h"

using io_test::read_bytes;
using io_test::scratch_path;

namespace {

std::string model_header(std::size_t count) {
  return "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(count) +
         "\nproperty float x\nproperty float y\nproperty float z\nproperty float nx\nproperty float ny\n"
         "property float nz\nproperty uchar diffuse_red\nproperty uchar diffuse_green\nproperty uchar diffuse_blue\n"
         "property float psz\nend_header\n";
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

Particle make_particle(uchar4 color, float radius) {
  Particle p{};
  p.pos = make_float3(1.0f, 2.0f, 3.0f);
  p.dir = make_float3(0.0f, 0.6f, 0.8f);
  p.color = color;
  p.radius = radius;
  return p;
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

  writeParticlesToPLY({}, {}, {}, path);  // an existing file is replaced
  EXPECT_EQ(read_bytes(path), model_header(0));
}

// The file appears whole or not at all: a failure leaves the earlier file and nothing beside it.
TEST(ModelOutput, FailureIsAnErrorAndKeepsTheEarlierFile) {
  const std::string dir = io_test::scratch_dir();
  const std::string path = dir + "/model.ply";
  io_test::write_bytes(path, "earlier");
  const std::vector<Particle> one = {make_particle(make_uchar4(1, 2, 3, 4), 1.0f)};
  io_test::expect_runtime_error([&] { writeParticlesToPLY(one, {0.0f}, {make_float3(0, 0, 1)}, dir + "/no/model.ply"); },
                                "cannot write model file \"" + dir + "/no/model.ply\": No such file or directory");
  std::filesystem::create_directories(dir + "/taken.ply");
  EXPECT_THROW(writeParticlesToPLY(one, {0.0f}, {make_float3(0, 0, 1)}, dir + "/taken.ply"), ModelWriteError);
  EXPECT_EQ(read_bytes(path), "earlier");
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) names.push_back(entry.path().filename().string());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"model.ply", "taken.ply"}));
}

// A run stopped while a model is being written leaves no temporary file behind.
TEST(TemporaryFile, RemovedWhenTheProcessIsStopped) {
  const std::string final_path = scratch_path("stopped.ply");
  std::string temporary;
  EXPECT_EXIT(
      {
        TemporaryFile file(final_path);
        std::fprintf(stderr, "%s", file.path.c_str());
        std::raise(SIGTERM);
      },
      testing::KilledBySignal(SIGTERM), "stopped.ply.[0-9]+.part");
  for (const auto& entry : std::filesystem::directory_iterator(io_test::scratch_dir()))
    EXPECT_EQ(entry.path().filename().string().find(".part"), std::string::npos) << entry.path();
}
