#include "src/app/improvement_passes.h"

#include <cfloat>
#include <cmath>
#include <filesystem>
#include <iostream>

#include "device/memory_info.h"
#include "ketra/timer.h"
#include "src/core/settings.h"
#include "src/core/viewer_hooks.h"
#include "src/io/save_depthmap_stack.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/pose/compute_camera_pose.h"
#include "src/pose/cublas_dynamic.h"
#include "src/refine/refine_depthmaps.h"
#include "src/render/depth_from_points.h"
#include "src/render/points.h"

namespace {

constexpr int kPasses = 3;
constexpr const char* kCoreTimer = "core algorithm time";

// The angle of a.R b.R^T, from its skew part and trace: unlike the arc cosine of the trace alone it
// stays exact for the small turns of an alignment, where float rotations put the trace just above 3.
double turn_degrees(const Camera& a, const Camera& b) {
  double m[3][3];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) {
      m[r][c] = 0.0;
      for (int k = 0; k < 3; ++k) m[r][c] += static_cast<double>(a.R[3 * r + k]) * b.R[3 * c + k];
    }
  const double sx = m[2][1] - m[1][2], sy = m[0][2] - m[2][0], sz = m[1][0] - m[0][1];
  return std::atan2(std::sqrt(sx * sx + sy * sy + sz * sz), m[0][0] + m[1][1] + m[2][2] - 1.0) * 180.0 / M_PI;
}

double centre_distance(const Camera& a, const Camera& b) {
  double sum = 0.0;
  for (int i = 0; i < 3; ++i) sum += std::pow(static_cast<double>(a.center[i]) - b.center[i], 2);
  return std::sqrt(sum);
}

// Dumps go into DIR/debug only when the user made that directory; otherwise none is formed.
void dump_depthmaps(const std::vector<CMatrix<float>>& maps, const char* name) {
  const std::string directory = output_directory + "/debug";
  if (!std::filesystem::is_directory(directory)) return;
  saveDepthmapStack(maps, directory + "/" + name);
}

// An empty model cannot be rendered or aligned to.
void require_particles(const std::vector<Particle>& particles, const char* step) {
  if (particles.empty()) throw ImprovementError(std::string(step) + ": the model has no points left to work on");
}

}  // namespace

std::string start_pose_device() {
  std::size_t free_bytes = 0, total_bytes = 0;
  device::memGetInfo(&free_bytes, &total_bytes);
  std::cout << " cuda meminfo: free " << (free_bytes >> 20) << " MB   total " << (total_bytes >> 20) << " MB"
            << std::endl;
  try {
    cublas.load();
  } catch (const std::runtime_error& e) {
    return std::string("--improve-cameras needs the device BLAS: ") + e.what();
  }
  return {};
}

void close_pass(int& pass) {
  const std::string pass_model_name = output_directory + "/model_" + std::to_string(pass) + ".ply";  // not written
  (void)pass_model_name;
  ++pass;
}

void pose_step(const std::vector<Particle>& particles, const std::vector<float>& offsets,
               const std::vector<float3>& normals, const std::vector<Camera*>& cameras, int pass) {
  require_particles(particles, "camera pose");
  // The model stays uploaded through the step; each alignment uploads the copy it renders from.
  Points points = createPoints(particles, offsets, normals);
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    Camera& cam = *cameras[i];
    const std::string name = "camera_" + std::to_string(i);
    if (pass == 0) sendCameraToLumvik(cam, name, 0);
    const Camera before = cam;
    ketra::timer::start("camera pose");
    try {
      compute_camera_pose(cam, particles, offsets, normals, 0.02f, 0.5f, 110);
    } catch (const std::runtime_error& e) {
      freePoints(points);
      throw ImprovementError(e.what());
    }
    ketra::timer::stop("camera pose");
    sendCameraToLumvik(cam, name, pass + 1);
    std::cout << " camera pose, view " << i << ": turned by " << turn_degrees(before, cam) << " degrees, moved by "
              << centre_distance(before, cam) << std::endl;
  }
  freePoints(points);
}

void refine_step(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                 const std::vector<Camera*>& cameras, std::vector<CMatrix<float>>& depthmaps, float radius) {
  require_particles(particles, "refine depth maps");
  std::vector<CMatrix<float>> rendered_depthmaps, improved_depthmaps, particle_depthmaps;
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

  // The dumps stay out of the measured time.
  ketra::timer::stop(kCoreTimer);
  dump_depthmaps(rendered_depthmaps, "debug_rendered_depthmaps.dat");
  ketra::timer::start(kCoreTimer);

  std::cout << " refine depth maps radius " << radius << "\n";
  try {
    refine_depthmaps(improved_depthmaps, particle_depthmaps, rendered_depthmaps, cameras, radius);
  } catch (const std::runtime_error& e) {
    throw ImprovementError(e.what());
  }
  depthmaps = improved_depthmaps;  // the input depth maps are replaced from here on

  ketra::timer::stop(kCoreTimer);
  dump_depthmaps(depthmaps, "debug_improved_depthmaps.dat");
  dump_depthmaps(particle_depthmaps, "debug_current_particles_depthmaps.dat");
  ketra::timer::start(kCoreTimer);

  particles.clear();
  offsets.clear();
  normals.clear();
  for (std::size_t i = 0; i < cameras.size(); ++i) {
    const Camera& cam = *cameras[i];
    create_particles_from_depthmap(particles, offsets, normals, particle_depthmaps[i], rendered_normals[i],
                                   depthmaps[i], cam.image, cam, depth_range_min, depth_range_max);
  }
  std::cout << "                   #PARTICLES = " << particles.size() << "\n";
  if (particles.empty())
    throw ImprovementError(
        "refine depth maps: no view kept a pixel; each view needs at least three other views whose optical axes "
        "lie within 60 degrees of its own, and their images must agree with it on the model");
}

void run_improvement_passes(std::vector<Particle>& particles, std::vector<float>& offsets,
                            std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                            std::vector<CMatrix<float>>& depthmaps, float refine_radius,
                            const std::function<void()>& filter_step, int& pass) {
  for (int i = 0; i < kPasses; ++i) {
    try {
      pose_step(particles, offsets, normals, cameras, pass);
      refine_step(particles, offsets, normals, cameras, depthmaps, refine_radius);
    } catch (const ImprovementError& e) {
      throw ImprovementError("improvement pass " + std::to_string(pass) + ": " + e.what());
    }
    filter_step();
    close_pass(pass);
  }
}
