// Time per call of compute_camera_pose (particle form, the pose step's arguments 0.02, 0.5, 110)
// for one 640 x 480 view of the 16-view sample scene, its pose written 0.3 degrees and 3 pixel
// footprints off, against the model of the 16 true depth maps (one particle per depth pixel).
//   bench_pose [benchmark flags] [--scene DIR] [--view I] [--views N] [--model-views M]
// --views sets the number of views of the scene (default 16), --model-views the number of views
// around view I whose depth maps make the model (default all): with 8 and 3 the model has about
// the size of the fine model of an 8-view run.
// The scene is written into DIR (default pose-scene in the working directory). Besides the time,
// the counters give the rotation (degrees) and centre (pixel footprints) errors before and after,
// the renderer's share of the time and the model size.

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <sstream>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/bench_main.h"
#include "ketra/timer.h"
#include "src/pose/compute_camera_pose.h"
#include "src/pose/cublas_dynamic.h"
#include "tests/pose/pose_scene.h"

namespace {

pose_test::PoseScene views;
cloud::ParticleSet model;
int view = 3;
int scene_views = 16;
int model_views = 0;  // 0: all

void BM_ComputeCameraPose(benchmark::State& state) {
  Camera const& truth = views.truth[view];
  // One pixel at the depth of the look-at point, as the scene generator measures its pose error.
  const double footprint = centre_distance(views.written[view], truth) / 3.0;
  Camera camera;
  double seconds = 0;
  for (auto _ : state) {
    state.PauseTiming();
    camera = views.written[view];
    ketra::timer::clear();
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    compute_camera_pose(camera, model.particles, model.offsets, model.normals, 0.02f, 0.5f, 110);
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  }
  state.counters["points"] = static_cast<double>(model.particles.size());
  state.counters["rot_before_deg"] = turn_degrees(views.written[view], truth);
  state.counters["rot_after_deg"] = turn_degrees(camera, truth);
  state.counters["centre_before_px"] = centre_distance(views.written[view], truth) / footprint;
  state.counters["centre_after_px"] = centre_distance(camera, truth) / footprint;
  // The timers hold the last call's spans.
  state.counters["render_share"] = ketra::timer::elapsedTime("rendering") / 1000.0 / seconds;
}
BENCHMARK(BM_ComputeCameraPose)->Unit(benchmark::kSecond)->UseRealTime()->Iterations(2);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::string dir = "pose-scene";
  for (int i = 1; i < argc; i += 2) {
    const bool has_value = i + 1 < argc;
    if (has_value && std::strcmp(argv[i], "--scene") == 0) {
      dir = argv[i + 1];
    } else if (has_value && std::strcmp(argv[i], "--view") == 0) {
      view = std::atoi(argv[i + 1]);
    } else if (has_value && std::strcmp(argv[i], "--views") == 0) {
      scene_views = std::atoi(argv[i + 1]);
    } else if (has_value && std::strcmp(argv[i], "--model-views") == 0) {
      model_views = std::atoi(argv[i + 1]);
    } else {
      std::fprintf(stderr, "bench_pose: unknown argument %s\n", argv[i]);
      return 1;
    }
  }
  if (scene_views < 2 || view < 0 || view >= scene_views || model_views < 0 || model_views > scene_views) {
    std::fprintf(stderr, "bench_pose: --views needs at least 2, --view a view of the scene, --model-views at most "
                         "--views\n");
    return 1;
  }
  if (model_views == 0) model_views = scene_views;
  return bench_main::run("bench_pose", [&] {
    std::fprintf(stderr, "bench_pose: generating %d views in %s and the model of %d ...\n", scene_views, dir.c_str(),
                 model_views);
    std::ostringstream progress;  // the view reader's lines stay off the table
    std::streambuf* out = std::cout.rdbuf(progress.rdbuf());
    views = pose_test::make_pose_scene(std::filesystem::absolute(dir).string(), scene_views, 640, 480, 0.3, 3.0);
    // The views nearest to the aligned one on the ring: it first, then alternately after and before.
    std::vector<int> around;
    for (int k = 0; static_cast<int>(around.size()) < model_views; ++k) {
      const int step = (k + 1) / 2 * (k % 2 == 1 ? 1 : -1);
      around.push_back(((view + step) % scene_views + scene_views) % scene_views);
    }
    model = pose_test::true_model(views, around);
    std::cout.rdbuf(out);
    cublas.load();
  });
}
