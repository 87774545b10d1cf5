// exploration harness (temporary)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <sstream>

#include "src/pose/align_to_model.h"
#include "src/pose/cublas_dynamic.h"
#include "src/pose/rig_adjustment.h"
#include "src/render/points.h"
#include "tests/pose/pose_scene.h"

static float envf(const char* n, float f) { const char* v = std::getenv(n); return v ? std::atof(v) : f; }

static void report(const char* what, std::vector<Camera> const& est, std::vector<Camera> const& truth) {
  WorldMotion m = best_world_motion(est, truth, 0.0);
  double sr = 0, sc = 0;
  for (std::size_t i = 0; i < est.size(); ++i) {
    Camera c = est[i];
    move_with_world(c, m);
    sr += turn_degrees(c, truth[i]);
    sc += centre_distance(c, truth[i]);
  }
  std::printf("%s: relative mean rotation %.4f deg, centre %.2f mm\n", what, sr / est.size(), 1000 * sc / est.size());
}

int main(int argc, char** argv) {
  const int width = std::atoi(argv[1]), height = std::atoi(argv[2]), nviews = std::atoi(argv[3]);
  const double degrees = std::atof(argv[4]), footprints = std::atof(argv[5]);
  const std::string mode = argc > 6 ? argv[6] : "true";
  std::ostringstream progress;
  std::streambuf* out = std::cout.rdbuf(progress.rdbuf());
  pose_test::PoseScene s = pose_test::make_pose_scene(std::filesystem::absolute("align-scene").string(), nviews, width, height, degrees, footprints);
  std::cout.rdbuf(out);
  cublas.load();
  ModelAlignment o;
  o.blend_radii = envf("QA_BLEND", o.blend_radii);
  o.depth_weight = envf("QA_DEPTH_WEIGHT", o.depth_weight);
  o.depth_threshold = envf("QA_DEPTH_THRESHOLD", o.depth_threshold);
  o.steps_per_round = envf("QA_STEPS", o.steps_per_round);
  o.max_rounds = envf("QA_ROUNDS", o.max_rounds);
  o.converged_pixels = envf("QA_CONV", 0.05f);
  o.scene_depth = 2.77f;
  if (mode == "joint") {
    pose_test::PoseScene w = s;
    w.truth = s.written;
    std::vector<Points> views;
    for (int j = 0; j < nviews; ++j) {
      cloud::ParticleSet m = pose_test::true_model(w, {j});
      views.push_back(createPoints(m.particles, m.offsets, m.normals));
    }
    std::vector<Camera> cams = s.written;
    report("given", cams, s.truth);
    for (int round = 0; round < 3; ++round) {
      std::vector<PairEquations> pairs;
      for (int i = 0; i < nviews; ++i) {
        std::vector<Points const*> models;
        std::vector<int> ids;
        for (int d : {-2, -1, 1, 2}) {
          const int j = (i + d + nviews) % nviews;
          models.push_back(&views[j]);
          ids.push_back(j);
        }
        const auto e = alignment_equations(cams[i], models, s.depth[i], o);
        for (std::size_t k = 0; k < ids.size(); ++k) pairs.push_back({i, ids[k], e[k]});
      }
      const auto motions = joint_rig_step(cams, pairs);
      // the views' particles move with their cameras: rebuild
      for (int i = 0; i < nviews; ++i) move_with_world(cams[i], motions[i]);
      w.truth = cams;
      for (int j = 0; j < nviews; ++j) {
        freePoints(views[j]);
        cloud::ParticleSet m = pose_test::true_model(w, {j});
        views[j] = createPoints(m.particles, m.offsets, m.normals);
      }
      report("joint step", cams, s.truth);
    }
    return 0;
  }
  const bool written_model = mode == "written";
  const double footprint = centre_distance(s.written[0], s.truth[0]) / footprints;
  double sr = 0, sc = 0, st = 0;
  int n = 0;
  for (int v = 0; v < nviews; v += std::max(1, nviews / 4)) {
    std::vector<int> others;
    for (int j = 0; j < nviews; ++j) if (j != v) others.push_back(j);
    cloud::ParticleSet m;
    if (written_model) {
      pose_test::PoseScene w = s;
      w.truth = s.written;
      m = pose_test::true_model(w, others);
    } else {
      m = pose_test::true_model(s, others);
    }
    Points points = createPoints(m.particles, m.offsets, m.normals);
    Camera c = s.written[v];
    const auto t0 = std::chrono::steady_clock::now();
    align_camera_to_model(c, points, s.depth[v], o);
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    freePoints(points);
    const double r0 = turn_degrees(s.written[v], s.truth[v]), r1 = turn_degrees(c, s.truth[v]);
    const double c0 = centre_distance(s.written[v], s.truth[v]) / footprint, c1 = centre_distance(c, s.truth[v]) / footprint;
    std::printf("view %2d: rotation %.4f -> %.4f deg, centre %.3f -> %.3f fp, %.1f s\n", v, r0, r1, c0, c1, secs);
    sr += r1; sc += c1; st += secs; ++n;
  }
  std::printf("mean after: rotation %.4f deg, centre %.3f fp, %.1f s per view\n", sr / n, sc / n, st / n);
}
