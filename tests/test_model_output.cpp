#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "ply/ply.h"
#include "src/model_output.h"
#include "tests/io_test_support.h"

using io_test::read_bytes;
using io_test::scratch_path;

namespace {

std::string model_header(std::size_t count) {
  return "ply\n"
         "format binary_little_endian 1.0\n"
         "element vertex " +
         std::to_string(count) +
         "\n"
         "property float x\n"
         "property float y\n"
         "property float z\n"
         "property float nx\n"
         "property float ny\n"
         "property float nz\n"
         "property uchar diffuse_red\n"
         "property uchar diffuse_green\n"
         "property uchar diffuse_blue\n"
         "property float psz\n"
         "end_header\n";
}

float float_at(const std::string& bytes, std::size_t at) {
  float v;
  std::memcpy(&v, bytes.data() + at, sizeof v);
  return v;
}

struct Vertex {
  float x, y, z, nx, ny, nz;
  unsigned char r, g, b;
  float psz;
};

constexpr std::size_t kRecordSize = 6 * 4 + 3 + 4;  // no alpha byte

Vertex vertex_at(const std::string& bytes, std::size_t at) {
  Vertex v;
  v.x = float_at(bytes, at);
  v.y = float_at(bytes, at + 4);
  v.z = float_at(bytes, at + 8);
  v.nx = float_at(bytes, at + 12);
  v.ny = float_at(bytes, at + 16);
  v.nz = float_at(bytes, at + 20);
  v.r = static_cast<unsigned char>(bytes[at + 24]);
  v.g = static_cast<unsigned char>(bytes[at + 25]);
  v.b = static_cast<unsigned char>(bytes[at + 26]);
  v.psz = float_at(bytes, at + 27);
  return v;
}

Particle make_particle(float3 pos, float3 dir, uchar4 color, float radius) {
  Particle p{};
  p.pos = pos;
  p.dir = dir;
  p.init_normal = dir;
  p.color = color;
  p.radius = radius;
  return p;
}

std::vector<std::string> errors;
void collect(p_ply, const char* message) { errors.emplace_back(message); }

}  // namespace

TEST(ModelOutput, WritesHeaderAndVerticesAtTheirCurrentPositions) {
  const std::string path = scratch_path("model.ply");
  const float3 pos = make_float3(1.0f, 2.0f, 3.0f);
  const float3 dir = make_float3(0.0f, 0.6f, 0.8f);
  const std::vector<Particle> particles = {make_particle(pos, dir, make_uchar4(10, 20, 30, 40), 0.25f),
                                           make_particle(pos, dir, make_uchar4(250, 0, 128, 77), 0.5f)};
  const std::vector<float> offsets = {0.0f, -2.5f};
  const std::vector<float3> normals = {make_float3(0, 0, 1), make_float3(0.6f, -0.8f, 0)};
  writeParticlesToPLY(particles, offsets, normals, path);

  const std::string bytes = read_bytes(path);
  const std::string header = model_header(2);
  ASSERT_EQ(bytes.size(), header.size() + 2 * kRecordSize);
  EXPECT_EQ(bytes.substr(0, header.size()), header);

  const Vertex a = vertex_at(bytes, header.size());
  const Vertex b = vertex_at(bytes, header.size() + kRecordSize);
  EXPECT_EQ(a.x, 1.0f);
  EXPECT_EQ(a.y, 2.0f);
  EXPECT_EQ(a.z, 3.0f);
  EXPECT_EQ(b.x, 1.0f);
  EXPECT_EQ(b.y, 2.0f + -2.5f * 0.6f);
  EXPECT_EQ(b.z, 3.0f + -2.5f * 0.8f);
  EXPECT_EQ(a.nz, 1.0f);
  EXPECT_EQ(b.nx, 0.6f);
  EXPECT_EQ(b.ny, -0.8f);
  EXPECT_EQ(a.r, 10);
  EXPECT_EQ(a.g, 20);
  EXPECT_EQ(a.b, 30);
  EXPECT_EQ(b.r, 250);
  EXPECT_EQ(b.b, 128);
  EXPECT_EQ(a.psz, 0.25f);
  EXPECT_EQ(b.psz, 0.5f);
}

TEST(ModelOutput, EmptyModelIsHeaderOnly) {
  const std::string path = scratch_path("empty.ply");
  io_test::write_bytes(path, std::string(1000, 'x'));  // an existing file is replaced
  writeParticlesToPLY({}, {}, {}, path);
  EXPECT_EQ(read_bytes(path), model_header(0));
}

TEST(PlyWriter, AsciiAndBigEndianModes) {
  const std::string text = scratch_path("ascii.ply");
  p_ply ply = ply_create(text.c_str(), PLY_ASCII, nullptr);
  ASSERT_NE(ply, nullptr);
  EXPECT_EQ(ply_add_element(ply, "point", 2), 1);
  EXPECT_EQ(ply_add_scalar_property(ply, "v", PLY_FLOAT), 1);
  EXPECT_EQ(ply_add_scalar_property(ply, "i", PLY_INT), 1);
  EXPECT_EQ(ply_add_element(ply, "none", 0), 1);
  EXPECT_EQ(ply_add_element(ply, "tag", 1), 1);
  EXPECT_EQ(ply_add_scalar_property(ply, "c", PLY_UCHAR), 1);
  EXPECT_EQ(ply_write_header(ply), 1);
  for (double v : {0.5, -7.9, 1e-3, 42.0, 300.0}) EXPECT_EQ(ply_write(ply, v), 1);
  EXPECT_EQ(ply_close(ply), 1);
  EXPECT_EQ(read_bytes(text),
            "ply\nformat ascii 1.0\nelement point 2\nproperty float v\nproperty int i\nelement none 0\n"
            "element tag 1\nproperty uchar c\nend_header\n0.5 -7\n0.00100000005 42\n255\n");

  const std::string big = scratch_path("big.ply");
  ply = ply_create(big.c_str(), PLY_BINARY_BIG_ENDIAN, nullptr);
  ply_add_element(ply, "e", 1);
  ply_add_scalar_property(ply, "s", PLY_SHORT);
  ply_add_scalar_property(ply, "f", PLY_FLOAT);
  ply_write_header(ply);
  ply_write(ply, -2.0);
  ply_write(ply, 1.0);
  EXPECT_EQ(ply_close(ply), 1);
  const std::string bytes = read_bytes(big);
  const std::string header = "ply\nformat binary_big_endian 1.0\nelement e 1\nproperty short s\nproperty float f\nend_header\n";
  EXPECT_EQ(bytes, header + std::string("\xff\xfe\x3f\x80\x00\x00", 6));
}

TEST(PlyWriter, MisuseIsReportedAndHarmless) {
  errors.clear();
  const std::string path = scratch_path("misuse.ply");
  p_ply ply = ply_create(path.c_str(), PLY_DEFAULT, collect);
  EXPECT_EQ(ply_add_scalar_property(ply, "x", PLY_FLOAT), 0);  // no element yet
  EXPECT_EQ(ply_write(ply, 1.0), 0);                           // header not written
  ply_add_element(ply, "vertex", 1);
  ply_add_scalar_property(ply, "x", PLY_UCHAR);
  ply_write_header(ply);
  EXPECT_EQ(ply_add_element(ply, "late", 1), 0);
  EXPECT_EQ(ply_write(ply, -5.0), 1);  // limited to 0
  EXPECT_EQ(ply_write(ply, 1.0), 0);   // beyond the declared count
  EXPECT_EQ(ply_close(ply), 1);
  EXPECT_EQ(errors.size(), 4u);
  EXPECT_EQ(read_bytes(path).back(), '\0');

  ply = ply_create(path.c_str(), PLY_DEFAULT, collect);
  ply_add_element(ply, "vertex", 2);
  ply_add_scalar_property(ply, "x", PLY_DOUBLE);
  ply_write_header(ply);
  ply_write(ply, 1.0);
  EXPECT_EQ(ply_close(ply), 0);  // one value missing
  EXPECT_EQ(errors.back(), "ply_close: fewer values written than declared");

  const std::string nowhere = scratch_path("no/such/dir.ply");
  EXPECT_EQ(ply_create(nowhere.c_str(), PLY_DEFAULT, collect), nullptr);
  EXPECT_EQ(errors.back(), "ply_create: cannot open file " + nowhere);
  EXPECT_EQ(ply_add_element(nullptr, "vertex", 1), 0);
  EXPECT_EQ(ply_write_header(nullptr), 0);
  EXPECT_EQ(ply_write(nullptr, 1.0), 0);
  EXPECT_EQ(ply_close(nullptr), 0);
}
