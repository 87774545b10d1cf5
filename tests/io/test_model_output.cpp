#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "ply/ply.h"
#include "src/io/model_output.h"
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
}

TEST(ModelOutput, EmptyModelIsHeaderOnly) {
  const std::string path = scratch_path("empty.ply");
  io_test::write_bytes(path, std::string(1000, 'x'));  // an existing file is replaced
  writeParticlesToPLY({}, {}, {}, path);
  EXPECT_EQ(read_bytes(path), model_header(0));
}
