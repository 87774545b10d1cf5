#include <cfloat>
#include <chrono>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "device/memory.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/app/backface_removal.h"
#include "src/app/command_line.h"
#include "src/app/fatal_error.h"
#include "src/app/improvement_passes.h"
#include "src/app/input_checks.h"
#include "src/app/model_files.h"
#include "src/app/preview.h"
#include "src/app/refined_views.h"
#include "src/app/run_summary.h"
#include "src/app/support_rule.h"
#include "src/seed/create_particles_from_superpixels.h"
#include "src/seed/create_superpixels.h"
#include "src/seed/measured_planes.h"
#include "src/filter/density.h"
#include "src/filter/filter_particles.h"
#include "src/io/model_output.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/seed/particles_to_images.h"
#include "src/app/scene_input.h"
#include "src/core/settings.h"
#include "src/seed/superpixel.h"
#include "src/particles/threshold_particles.h"
#include "src/core/viewer_hooks.h"

namespace {

void print_filter_header(float radius, size_t count) {
  std::cout << " Filter particles,     radius = " << radius << "\n";
  std::cout << "                   #particles = " << count << "\n";
}

// Ends the run with one line on standard error, after the progress printed so far.
int fail(const std::string& line) {
  std::cout.flush();
  std::cerr << line << "\n";
  return 1;
}

// Writes one model; false, after saying why, when the file cannot be written.
bool write_model(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                 const std::vector<float3>& normals, const std::string& path) {
  try {
    writeParticlesToPLY(particles, offsets, normals, path, model_color_names);
    return true;
  } catch (const ModelWriteError& e) {
    fail(e.what());
    return false;
  }
}

}  // namespace

int main(int argc, char* argv[]) {
  const auto start = std::chrono::steady_clock::now();
  report_internal_errors();
  std::vector<std::string> view_files;
  if (std::optional<int> status = set_up_run(argc, argv, view_files)) return *status;
  const std::string views_directory = output_directory + "/views";
  if (improve_cameras)
    if (const std::string problem = prepare_refined_views(views_directory, view_files); !problem.empty())
      return fail(problem);

  std::vector<Camera> cameras;
  std::vector<Camera*> camera_ptrs;
  std::vector<CMatrix<float>> depthmaps;
  std::vector<std::string> depth_paths;  // as the view files name them, for the refined views
  try {
    read_views(view_files, cameras, camera_ptrs, depthmaps, /*average_depth_given=*/true,  // --depth-avg is required
               &depth_paths);
  } catch (const ViewFileError& e) {
    return fail(e.what());
  }
  const float s = superpixel_radius(cameras[0].width, cameras[0].height, superpixel_count);
  if (const std::string problem = radius_problem(average_depth, cameras[0].K[0], s); !problem.empty())
    return fail(problem);
  const InputDepths input = measure_input_depths(depthmaps);
  if (const std::string warning = depth_avg_warning(average_depth, input); !warning.empty())
    std::cerr << warning << std::endl;

  std::vector<std::vector<Superpixel>> superpixels(n_keyframes);
  std::vector<Particle> sp_particles, particles;
  std::vector<float> sp_offsets, offsets;
  std::vector<float3> sp_normals, normals;
  std::size_t superpixel_points = 0;
  if (support_rule.visible()) {
    // Few views: each fine particle starts on a plane fitted to its own pixel's measured
    // neighbourhood. No superpixel scaffold is made: its planes straddle thin objects and their
    // background, and disagree with the measurements on curved surfaces and near wrong depths.
    for (int i = 0; i < n_keyframes; ++i) {
      const Camera& cam = *camera_ptrs[i];
      CMatrix<float> depth;
      CMatrix<float3> normal_map;
      measured_planes(depth, normal_map, depthmaps[i], cam, kMeasuredPlaneFootprints,
                      kMeasuredPlaneWindow, depth_range_min, depth_range_max);
      // The plane stands for the measurement too: the data term pulls towards it, not the noise.
      create_particles_from_depthmap(particles, offsets, normals, depth, normal_map, depth, cam.image, cam,
                                     depth_range_min, depth_range_max);
    }
  } else {
    // Superpixel-level model: one particle per superpixel, filtered on the union of all views.
    for (int i = 0; i < n_keyframes; ++i) {
      const Camera& cam = *camera_ptrs[i];
      create_superpixels(superpixels[i], depthmaps[i], cam.image, cam, average_depth, superpixel_count);
      create_particles_from_superpixels(sp_particles, sp_offsets, sp_normals, superpixels[i], CMatrix<float>(),
                                        CMatrix<float3>(), depthmaps[i], cam);
    }
    const float r9 = (s * 9.0f) * average_depth / cameras[0].K[0];
    const float rs = s * average_depth / cameras[0].K[0];
    print_filter_header(r9, sp_particles.size());
    filter_particles(sp_particles, sp_offsets, sp_normals, alpha_sp, beta_sp, r9, 50, 50, gradient_descent_timestep_sp,
                     50, "particles");
    support_filter(sp_particles, sp_offsets, sp_normals, camera_ptrs, rs, min_support_sp, kSuperpixelSupportPerView,
                   support_rule);
    sendParticlesToLumvik(sp_particles, sp_offsets, {}, "particles", debug_lumvik_particle_iteration++);
    if (!write_model(sp_particles, sp_offsets, sp_normals, output_directory + kSuperpixelModelName)) return 1;
    superpixel_points = sp_particles.size();

    // Fine model: one particle per pixel on the scaffold of the superpixel-level model.
    for (int i = 0; i < n_keyframes; ++i) {
      const Camera& cam = *camera_ptrs[i];
      CMatrix<float> depth;
      CMatrix<float3> normal_map;
      particles_to_images(depth, normal_map, sp_particles, sp_offsets, sp_normals, superpixels[i], cam,
                          depth_range_min, depth_range_max);
      create_particles_from_depthmap(particles, offsets, normals, depth, normal_map, depthmaps[i], cam.image, cam,
                                     depth_range_min, depth_range_max);
    }
    sp_particles.clear();
    sp_offsets.clear();
    sp_normals.clear();
  }
  float r1 = average_depth / cameras[0].K[0];
  const float r5 = (5.0f * average_depth) / cameras[0].K[0];
  if (use_backface_visibility_test) remove_backfacing_particles(particles, offsets, normals, camera_ptrs, r1, 1);
  // The visible share judges the fine model once, after its filter, when the views' particles have
  // met on common surfaces.
  if (!support_rule.visible())
    support_filter(particles, offsets, normals, camera_ptrs, r1, min_support, kPixelSupportPerView, support_rule);

  int pass = 0;
  const auto filter_step = [&] {
    print_filter_header(r5, particles.size());
    filter_particles(particles, offsets, normals, alpha, beta, r5, 2, 10, gradient_descent_timestep, 5, "particles");
  };
  filter_step();
  if (!improve_cameras) {
    close_pass(pass);
  } else {
    // Camera alignment, depth-map refinement and filtering, three times.
    try {
      run_improvement_passes(particles, offsets, normals, camera_ptrs, depthmaps, filter_step, pass);
    } catch (const ImprovementError& e) {
      return fail(e.what());
    }
  }

  r1 = average_depth / cameras[0].K[0];
  if (use_backface_visibility_test) {
    if (!write_model(particles, offsets, normals, output_directory + kBackfaceModelName1)) return 1;
    remove_backfacing_particles(particles, offsets, normals, camera_ptrs, r1, 2);
    if (!write_model(particles, offsets, normals, output_directory + kBackfaceModelName2)) return 1;
  }
  support_filter(particles, offsets, normals, camera_ptrs, r1, min_support, kPixelSupportPerView, support_rule);
  if (!write_model(particles, offsets, normals, output_directory + kModelName)) return 1;
  RunSummary summary;
  summary.backface_models = use_backface_visibility_test;
  if (improve_cameras) {
    if (const std::string problem = write_refined_views(views_directory, view_files, cameras, depth_paths);
        !problem.empty())
      return fail(problem);
    summary.views_directory = views_directory;
    summary.refined_views = n_keyframes;
  }
  if (write_preview) {
    summary.preview_directory = output_directory + "/preview";
    summary.preview_images = write_preview_images(particles, offsets, normals, camera_ptrs, summary.preview_directory);
  }
  device::reset();

  summary.superpixel_model = !support_rule.visible();
  summary.superpixel_points = superpixel_points;
  summary.points = particles.size();
  summary.input_pixels = input.pixels;
  summary.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  summary.output_directory = output_directory;
  summary.min_support_sp = min_support_sp;
  summary.min_support = min_support;
  summary.visible_support = support_rule.share;
  summary.visible_support_floor = support_rule.floor;
  std::cout << format_summary(summary) << std::flush;
  return 0;
}
