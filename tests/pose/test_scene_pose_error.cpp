#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>

#include "tests/support/io_test_support.h"
#include "tests/support/run_process.h"
#include "tools/scene/scene_arguments.h"
#include "tools/scene/model_file.h"
#include "tools/scene/scene_files.h"

namespace fs = std::filesystem;
using io_test::read_bytes;
using io_test::scratch_path;
using namespace scene;

namespace {

std::string generate(std::string const& name, std::vector<std::string> extra) {
  const std::string out = scratch_path(name);
  fs::remove_all(out);
  std::vector<std::string> args = {"--out", out, "--views", "3", "--width", "48", "--height", "40"};
  args.insert(args.end(), extra.begin(), extra.end());
  const e2e::Result r = e2e::run(QUILLARA_SCENE_BIN, io_test::scratch_dir(), args);
  EXPECT_EQ(r.status, 0) << r.err;
  return out;
}

double rotation_degrees(ViewFile const& a, ViewFile const& b) {
  double trace = 0;  // of Ra Rb^T
  for (int i = 0; i < 9; ++i) trace += a.R[i] * b.R[i];
  return std::acos(std::fmin(1.0, (trace - 1.0) / 2.0)) * 180.0 / M_PI;
}

Mat3 rotation(ViewFile const& v) { return {{v.R[0], v.R[1], v.R[2], v.R[3], v.R[4], v.R[5], v.R[6], v.R[7], v.R[8]}}; }
Vec3 translation(ViewFile const& v) { return {v.t[0], v.t[1], v.t[2]}; }
Vec3 centre(ViewFile const& v) { return transpose_times(rotation(v), -translation(v)); }

}  // namespace

// The written poses are off by the requested angle and distance, in directions that differ per
// view and seed; images and depth maps are those of the true poses, which true_view_NN.txt hold.
TEST(ScenePoseError, WrittenPosesCarryAKnownErrorAndTheTruePosesAreKept) {
  const std::string plain = generate("plain", {});
  const std::string moved = generate("moved", {"--pose-error", "0.4,2.5", "--seed", "3"});
  const std::string other_seed = generate("other_seed", {"--pose-error=0.4,2.5", "--seed", "4"});

  const std::vector<std::string> files = e2e::file_names(moved);
  EXPECT_EQ(std::count(files.begin(), files.end(), "true_view_02.txt"), 1) << "true poses";
  EXPECT_EQ(files.size(), 14u);

  const Scene world = make_default_scene();
  Vec3 shifts[3];
  for (int v = 0; v < 3; ++v) {
    for (std::string const& name : {image_file_name(v), depth_file_name(v)})
      EXPECT_EQ(read_bytes(plain + "/" + name), read_bytes(moved + "/" + name)) << name;
    const ViewFile truth = read_view_file(moved + "/" + true_view_file_name(v));
    const ViewFile written = read_view_file(moved + "/" + view_file_name(v));
    const ViewFile reference = read_view_file(plain + "/" + view_file_name(v));
    for (int i = 0; i < 9; ++i) EXPECT_EQ(truth.R[i], reference.R[i]);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(truth.t[i], reference.t[i]);

    EXPECT_NEAR(rotation_degrees(written, truth), 0.4, 0.01) << v;
    // The footprint of one pixel at the depth of the point every camera looks at.
    const Vec3 c = centre(truth);
    const double depth = dot(world.look_at - c, Vec3{truth.R[6], truth.R[7], truth.R[8]});
    shifts[v] = centre(written) - c;
    EXPECT_NEAR(length(shifts[v]) / (depth / truth.K[0]), 2.5, 0.01) << v;

    const ViewFile other = read_view_file(other_seed + "/" + view_file_name(v));
    EXPECT_GT(length(centre(other) - centre(written)), 0.1 * length(shifts[v])) << v;
  }
  EXPECT_LT(dot(shifts[0], shifts[1]) / (length(shifts[0]) * length(shifts[1])), 0.99) << "same direction for two views";
}

// A model made with poses that share one error (the whole rig moved) is the true surface moved
// with the rig. The evaluator's --rig takes that motion away again, and only that: measured after
// it, such a model is exact, and the true surface itself is no longer.
TEST(ScenePoseError, EvaluatorTakesAwayTheErrorTheCamerasShare) {
  const std::string dir = generate("rig", {"--rig-error", "0.5,3", "--seed", "5"});
  // Seen from the true camera and placed with the written one, as a fusion of perfect depth maps
  // with the written poses would place it; every view gives the same motion.
  const ViewFile truth = read_view_file(dir + "/" + true_view_file_name(0));
  const ViewFile written = read_view_file(dir + "/" + view_file_name(0));
  std::vector<SurfaceSample> moved;
  for (const ModelPoint& p : read_model_ply(dir + "/ground_truth.ply"))
    moved.push_back({transpose_times(rotation(written), rotation(truth) * p.point + translation(truth) - translation(written)),
                     transpose_times(rotation(written), rotation(truth) * p.normal)});
  write_ground_truth_ply(dir + "/moved.ply", moved);

  const auto evaluate = [&](std::vector<std::string> args) {
    const e2e::Result r = e2e::run(QUILLARA_EVALUATE_BIN, io_test::scratch_dir(), args);
    EXPECT_EQ(r.status, 0) << r.err;
    return r.out;
  };
  const auto median_mm = [](const std::string& out) {
    const std::size_t at = out.find("accuracy:     median ");
    return at == std::string::npos ? -1.0 : std::stod(out.substr(at + 21));
  };
  const std::string plain = evaluate({dir, dir + "/moved.ply"});
  const std::string rig = evaluate({dir, dir + "/moved.ply", "--rig", dir});
  EXPECT_GT(median_mm(plain), 1.0) << plain;
  EXPECT_LT(median_mm(rig), 0.01) << rig;
  EXPECT_EQ(rig.rfind("rig: the model moved by the best rigid motion of its cameras onto the true ones: 0.5", 0), 0u) << rig;
  // Only the added first line tells the two reports apart when the cameras are true.
  fs::create_directories(dir + "/true");
  for (int v = 0; v < 3; ++v) fs::copy_file(dir + "/" + true_view_file_name(v), dir + "/true/" + view_file_name(v));
  const std::string truth_report = evaluate({dir, dir + "/ground_truth.ply"});
  const std::string true_rig = evaluate({dir, dir + "/ground_truth.ply", "--rig", dir + "/true"});
  EXPECT_EQ(true_rig.substr(true_rig.find('\n') + 1), truth_report);
}

TEST(ScenePoseError, MalformedValuesAreRefused) {
  for (std::string const value : {"0.5", "0.5,x", "-1,2", "46,1", "1,2000"})
    io_test::expect_runtime_error([&] { parse_scene_arguments({"--out", "refused", "--pose-error", value}); },
                                  "--pose-error needs DEGREES,FOOTPRINTS with 0 to 45 degrees and 0 to 1000 "
                                  "footprints, got '" + value + "'");
}
