#include "src/improve/rebuild_model.h"

#include <cfloat>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include "ketra/timer.h"
#include "src/core/settings.h"
#include "src/improve/improvement_error.h"
#include "src/io/save_depthmap_stack.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/refine/refine_depthmaps.h"
#include "src/render/depth_from_points.h"
#include "src/render/points.h"

namespace {

constexpr const char* kCoreTimer = "core algorithm time";

// Dumps go into DIR/debug only when the user made that directory; they stay out of the measured
// time.
void dump_depthmaps(std::vector<CMatrix<float>> const& maps, const char* name) {
  const std::string directory = output_directory + "/debug";
  if (!std::filesystem::is_directory(directory)) return;
  ketra::timer::stop(kCoreTimer);
  saveDepthmapStack(maps, directory + "/" + name);
  ketra::timer::start(kCoreTimer);
}

int env_int(const char* name, int fallback) {
  const char* v = std::getenv(name);
  return v ? std::atoi(v) : fallback;
}

}  // namespace

void rebuild_model(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                   std::vector<Camera*> const& cameras, std::vector<CMatrix<float>> const& measured_depthmaps,
                   float radius) {
  if (particles.empty()) throw ImprovementError("refine depth maps: the model has no points left to work on");
  std::vector<CMatrix<float>> rendered_depthmaps, improved_depthmaps, trusted_depthmaps;
  std::vector<CMatrix<float3>> rendered_normals;
  Points points = createPoints(particles, offsets, normals);
  for (Camera* cam : cameras) {
    CMatrix<float> depth;
    CMatrix<float3> normal_map;
    compute_depthmap_and_normals_from_points(depth, normal_map, points, *cam, 0.02f, 0.0f, FLT_MAX, 1.0f);
    rendered_depthmaps.push_back(depth);
    rendered_normals.push_back(normal_map);
  }
  freePoints(points);
  dump_depthmaps(rendered_depthmaps, "debug_rendered_depthmaps.dat");

  // 0: measured depths as they are; 1: start at the trusted rendered depth; 2: start at the refined depth where trusted
  const int mode = env_int("QA_REBUILD", 0);
  if (mode == 1 || mode == 2) {
    std::cout << " refine depth maps radius " << radius << "\n";
    try {
      refine_depthmaps(improved_depthmaps, trusted_depthmaps, rendered_depthmaps, cameras, radius);
    } catch (const std::runtime_error& e) {
      throw ImprovementError(e.what());
    }
    dump_depthmaps(improved_depthmaps, "debug_improved_depthmaps.dat");
    dump_depthmaps(trusted_depthmaps, "debug_current_particles_depthmaps.dat");
  }

  particles.clear();
  offsets.clear();
  normals.clear();
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    const Camera& cam = *cameras[i];
    const CMatrix<float>& measured = measured_depthmaps[i];
    CMatrix<float> start = measured;
    if (mode == 1) start = trusted_depthmaps[i];
    if (mode == 3) start = rendered_depthmaps[i];
    if (mode == 2) {
      start = improved_depthmaps[i];
      for (int k = 0; k < start.xSize * start.ySize; ++k)
        if (trusted_depthmaps[i].data[k] == 0.0f) start.data[k] = 0.0f;
    }
    create_particles_from_depthmap(particles, offsets, normals, start, rendered_normals[i], measured, cam.image, cam,
                                   depth_range_min, depth_range_max);
  }
  std::cout << "                   #PARTICLES = " << particles.size() << "\n";
  if (particles.empty())
    throw ImprovementError(
        "refine depth maps: no view kept a pixel; each view needs at least three other views whose optical axes "
        "lie within 60 degrees of its own, and their images must agree with it on the model");
}
