#include "src/app/improvement_passes.h"

#include <chrono>
#include <ctime>
#include <iostream>
#include <string>

#include "src/core/settings.h"
#include "src/improve/align_cameras.h"

namespace {

constexpr int kPasses = 3;

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
                            const std::vector<CMatrix<float>>& depthmaps, const ModelStep& model_step, int& pass) {
  std::vector<Camera> given;
  for (const Camera* c : cameras) given.push_back(*c);
  RigAlignment alignment;
  alignment.model.scene_depth = average_depth;
  alignment.lever = average_depth;
  // The joint step that follows settles every camera at full size, so the alignment of each camera
  // to the model stops at a tenth of a pixel and takes at most two renderings at full size; after
  // the first pass the cameras stand within a pixel, and the coarse levels are left out. Each
  // rendering draws the whole model, which makes these counts most of the pose step's time.
  alignment.model.converged_pixels = 0.1f;
  alignment.model.max_full_rounds = 2;
  for (int i = 0; i < kPasses; ++i) {
    alignment.model.full_size_only = i > 0;
    std::vector<Camera> before;
    for (const Camera* c : cameras) before.push_back(*c);
    try {
      timed("pose step", pass,
            [&] { align_cameras(particles, offsets, normals, cameras, depthmaps, given, alignment); });
    } catch (const ImprovementError& e) {
      throw ImprovementError("improvement pass " + std::to_string(pass) + ": " + e.what());
    }
    timed("model step", pass, [&] { model_step(i == 0, before); });
    close_pass(pass);
  }
}
