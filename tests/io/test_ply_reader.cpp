// A model written with the standard colour names, read back by a point-cloud library's own PLY
// reader (its converter to the library's text format, from the Debian package pcl-tools).

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "device/vector_math.h"
#include "src/io/model_output.h"
#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"

namespace {

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

TEST(PlyReader, AReaderThatWantsStandardNamesLoadsPositionsNormalsAndColours) {
  ASSERT_TRUE(std::filesystem::exists(kConverter)) << kConverter << " is missing: scripts/install-deps installs it";
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
  for (int i = 0; i < 50; ++i) {
    Particle p{};
    p.pos = make_float3(0.1f * i, -0.25f * i, 2.0f + 0.01f * i);
    p.dir = make_float3(0.0f, 0.6f, 0.8f);
    p.color = make_uchar4(static_cast<unsigned char>(5 * i), static_cast<unsigned char>(255 - 3 * i),
                          static_cast<unsigned char>(i * i % 256), 255);
    p.radius = 0.001f * (i + 1);
    particles.push_back(p);
    offsets.push_back(0.5f * static_cast<float>(i % 3));
    const float a = 0.1f * static_cast<float>(i);
    normals.push_back(make_float3(std::cos(a) * 0.6f, std::sin(a) * 0.6f, -0.8f));
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
    // Colour packed as 0xRRGGBB.
    const auto rgb = static_cast<std::uint32_t>(row[cloud.column.at("rgb")]);
    EXPECT_EQ(rgb >> 16 & 255u, particles[i].color.x);
    EXPECT_EQ(rgb >> 8 & 255u, particles[i].color.y);
    EXPECT_EQ(rgb & 255u, particles[i].color.z);
  }
}
