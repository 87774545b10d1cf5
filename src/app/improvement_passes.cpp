#include "src/app/improvement_passes.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <ctime>
#include <iostream>
#include <string>

#include "src/core/settings.h"
#include "src/improve/align_cameras.h"
#include "src/pose/rig_motion.h"

namespace {

constexpr int kPasses = 3;

// When the last pose step moves every camera by less than this many pixels, the model it leaves,
// carried along with its cameras, stands in for one made anew: at 640 x 480 the last step moved
// cameras by a quarter of a pixel (0.3 degrees, one footprint given) to 0.6 pixels (0.5 degrees,
// three footprints), the carried model was as complete within a quarter of a point, and a model
// made anew costs as much as the pose step.
constexpr double kCarryPixels = 1.0;

// The largest shift, in pixels of each camera's image, that the move from `before` to the cameras
// as they stand gives the scene at its average depth: turn times focal length, or centre shift
// times focal length over depth.
double largest_pixel_move(std::vector<Camera> const& before, std::vector<Camera*> const& cameras) {
  double pixels = 0.0;
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    const double focal = cameras[i]->K[0];
    pixels = std::max({pixels, turn_degrees(before[i], *cameras[i]) * M_PI / 180.0 * focal,
                       centre_distance(before[i], *cameras[i]) * focal / average_depth});
  }
  return pixels;
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
    const double moved = largest_pixel_move(before, cameras);
    if (i == kPasses - 1 && moved < kCarryPixels)
      std::cout << " improvement pass " << pass << ", model step: left out, the pose step moved the cameras by "
                << moved << " pixels at most; the model moved with them" << std::endl;
    else
      timed("model step", pass, [&] { model_step(i == 0, before); });
    close_pass(pass);
  }
}
