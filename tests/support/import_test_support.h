#pragma once

// Shared by the importer tests: a small generated scene written in another tool's layout beside
// its native view files, and the comparison of imported views with the native ones.

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "formats/depth_png.h"
#include "image/CTensor.h"
#include "tests/support/generated_scene.h"
#include "tests/support/io_test_support.h"
#include "tools/import/run_import.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace import_test {

struct Generated {
  std::string dir;
  std::vector<scene::SceneCamera> cameras;
};

// Six views of 160 x 120 of the sample scene, native files and the layout in dir.
inline Generated generate(const std::string& dir, scene::Layout layout, int views = 6) {
  std::filesystem::remove_all(dir);
  scene::SceneOptions o = e2e::small_scene(dir, views);
  o.principal_offset_x = 3.25;  // an off-centre principal point shows any half-pixel slip
  o.principal_offset_y = -2.5;
  o.ground_truth_stride = 40;
  o.layout = layout;
  scene::write_scene(scene::make_default_scene(), o);
  return {std::filesystem::absolute(dir).string(),
          scene::make_cameras(scene::make_default_scene(), scene::camera_ring(o))};
}

inline importer::Intrinsics intrinsics_of(const scene::SceneCamera& c) { return {c.fx, c.fy, c.cx, c.cy}; }

// Imports through the library, keeping the printed text.
inline importer::ImportSummary import(const importer::ImportOptions& options, std::string* printed = nullptr) {
  std::ostringstream out;
  importer::ImportSummary s = importer::run_import(options, out);
  if (printed) *printed = out.str();
  return s;
}

// Expects the import to fail with exactly `text`.
inline void expect_refused(const importer::ImportOptions& o, const std::string& text) {
  io_test::expect_runtime_error([&] { import(o); }, text);
}

inline importer::ImportOptions options(importer::SourceLayout layout, const std::string& source,
                                       const std::string& out_dir) {
  importer::ImportOptions o;
  o.layout = layout;
  o.source = source;
  o.settings.out_dir = out_dir;
  return o;
}

// Imported view i must be native view native[i]: the same intrinsics and rotation, the
// translation times the scale, depth values that are the native ones times the scale (after the
// cut-off at max_thousandths, if any), and the same colour (within JPEG's loss when lossy).
inline void expect_native_views(const std::string& native_dir, const importer::ImportSummary& s,
                                const std::vector<int>& native, bool lossy_colour = false,
                                unsigned max_thousandths = 65535) {
  ASSERT_EQ(s.view_files.size(), native.size());
  for (size_t i = 0; i < native.size(); ++i) {
    SCOPED_TRACE("imported view " + std::to_string(i));
    const ViewFile a = read_view_file(s.view_files[i]);
    const ViewFile b = read_view_file(native_dir + "/" + scene::view_file_name(native[i]));
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(a.K[k], b.K[k], 1e-4) << "K " << k;
    for (int k = 0; k < 9; ++k) EXPECT_NEAR(a.R[k], b.R[k], 1e-6) << "R " << k;
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(a.t[k], s.scale * b.t[k], 1e-5 * s.scale) << "t " << k;
    EXPECT_EQ(a.width, b.width);
    EXPECT_EQ(a.height, b.height);

    const CMatrix<unsigned short> da = read_depth_png(a.depth_path), db = read_depth_png(b.depth_path);
    ASSERT_EQ(da.size(), db.size());
    size_t different = 0;
    for (size_t p = 0; p < da.size(); ++p) {
      const double expected = db.data[p] <= max_thousandths ? db.data[p] * s.scale : 0;
      different += da.data[p] != expected;
    }
    EXPECT_EQ(different, 0u);

    CTensor<float> ca, cb;
    ca.readFromImage(a.image_path.c_str());
    cb.readFromImage(b.image_path.c_str());
    ASSERT_EQ(ca.size(), cb.size());
    double error = 0;
    for (size_t p = 0; p < ca.size(); ++p) error += std::abs(ca.data[p] - cb.data[p]);
    EXPECT_LE(error / static_cast<double>(ca.size()), lossy_colour ? 4.0 : 0.0);
  }
}

}  // namespace import_test
