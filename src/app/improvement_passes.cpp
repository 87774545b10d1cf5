#include "src/app/improvement_passes.h"

#include <chrono>
#include <ctime>
#include <cstdlib>
#include <iostream>
#include <string>

#include "src/core/settings.h"
#include "src/improve/align_cameras.h"
#include "src/improve/rebuild_model.h"

namespace {

constexpr int kPasses = 3;

float env_float(const char* name, float fallback) {
  const char* v = std::getenv(name);
  return v ? static_cast<float>(std::atof(v)) : fallback;
}

// Runs step and prints how long it took, in wall and processor seconds.
template <class Step>
void timed(const char* name, int pass, Step&& step) {
  const auto wall = std::chrono::steady_clock::now();
  const std::clock_t processor = std::clock();
  step();
  std::cout << " improvement pass " << pass << ", " << name << ": "
            << std::chrono::duration<double>(std::chrono::steady_clock::now() - wall).count() << " s, processor "
            << static_cast<double>(std::clock() - processor) / CLOCKS_PER_SEC << " s" << std::endl;
}

}  // namespace

void close_pass(int& pass) {
  const std::string pass_model_name = output_directory + "/model_" + std::to_string(pass) + ".ply";  // not written
  (void)pass_model_name;
  ++pass;
}

void run_improvement_passes(std::vector<Particle>& particles, std::vector<float>& offsets,
                            std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                            const std::vector<CMatrix<float>>& depthmaps, const std::function<void()>& filter_step,
                            const std::function<void()>& rebuild_step, int& pass) {
  std::vector<Camera> given;
  for (const Camera* c : cameras) given.push_back(*c);
  ModelAlignment alignment;
  alignment.scene_depth = average_depth;
  alignment.converged_pixels = env_float("QA_CONV", 0.05f);
  alignment.blend_radii = env_float("QA_BLEND", alignment.blend_radii);
  alignment.depth_weight = env_float("QA_DEPTH_WEIGHT", alignment.depth_weight);
  alignment.depth_threshold = env_float("QA_DEPTH_THRESHOLD", alignment.depth_threshold);
  alignment.steps_per_round = static_cast<int>(env_float("QA_STEPS", static_cast<float>(alignment.steps_per_round)));
  alignment.max_rounds = static_cast<int>(env_float("QA_ROUNDS", static_cast<float>(alignment.max_rounds)));
  const int passes = static_cast<int>(env_float("QA_PASSES", kPasses));
  for (int i = 0; i < passes; ++i) {
    try {
      timed("pose step", pass, [&] { align_cameras(particles, offsets, normals, cameras, depthmaps, given, alignment); });
      if (std::getenv("QA_FULL") && std::atoi(std::getenv("QA_FULL"))) {
        timed("model step", pass, rebuild_step);
      } else {
        const float r4 = (4.0f * average_depth) / cameras[0]->K[0];
        timed("refine step", pass, [&] { rebuild_model(particles, offsets, normals, cameras, depthmaps, r4); });
        timed("filter step", pass, filter_step);
      }
    } catch (const ImprovementError& e) {
      throw ImprovementError("improvement pass " + std::to_string(pass) + ": " + e.what());
    }
    close_pass(pass);
  }
}
