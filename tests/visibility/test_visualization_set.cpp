// The visualisation set on a generated view: a hidden copy of the surface behind it is thinned
// away, the visible particles stay and take the colour rendered at their own pixel.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "src/core/settings.h"
#include "src/render/render_points.h"
#include "src/visibility/create_particles_for_visualization.h"
#include "tests/render/render_test_support.h"
#include "tests/support/io_test_support.h"

using VisualizationSet = RenderTest;

TEST_F(VisualizationSet, KeepsWhatItsViewSeesInTheRenderedColour) {
  GeneratedView v = generated(0);
  ParticleSet s = particles_of(v);
  const std::size_t visible = s.particles.size();
  // A second layer ten pixel footprints behind the first, seen by nobody.
  for (std::size_t i = 0; i < visible; ++i) {
    Particle p = s.particles[i];
    s.particles.push_back(p);
    s.offsets.push_back(-10.0f * p.radius);
    s.normals.push_back(s.normals[i]);
  }
  const std::string saved_directory = output_directory;
  output_directory = io_test::scratch_path("visualization");
  std::filesystem::create_directories(output_directory + "/debug");
  std::vector<Particle> out;
  std::vector<float> out_offsets;
  std::vector<float3> out_normals;
  testing::internal::CaptureStdout();
  create_particles_for_visualization(out, out_offsets, out_normals, s.particles, s.offsets, s.normals, {&v.camera});
  const std::string printed = testing::internal::GetCapturedStdout();
  const std::string dump = output_directory + "/debug/min_camdistances.dat";
  output_directory = saved_directory;

  EXPECT_TRUE(std::filesystem::exists(dump));
  EXPECT_NE(printed.find("#points for visualization " + std::to_string(out.size()) + "\n"), std::string::npos);
  // The colours are those of a rendering of the whole set into the view; float sums in another
  // order may move a channel by one.
  RenderBuffer rb = buffer(v.camera.width, v.camera.height);
  render_points(rb, points(s), v.camera, 0.02f, 0.0f, empty_depth, 1.0f);
  const std::vector<uchar4> rendered = download(rb.image);
  std::size_t hidden = 0;
  for (std::size_t i = 0; i < out.size(); ++i) {
    hidden += out_offsets[i] != 0.0f;
    const uchar4 r = rendered[out[i].pixel_index], c = out[i].color;
    ASSERT_LE(std::max({std::abs(c.x - r.x), std::abs(c.y - r.y), std::abs(c.z - r.z)}), 1) << out[i].pixel_index;
  }
  EXPECT_EQ(hidden, 0u);
  EXPECT_GT(out.size(), visible * 8 / 10);

  Particle stranger = s.particles[0];
  stranger.camera_index = 7;
  io_test::expect_runtime_error(
      [&] { create_particles_for_visualization(out, out_offsets, out_normals, {stranger}, {0.0f}, {s.normals[0]}, {&v.camera}); },
      "this should not happen");
}
