#include <chrono>
#include <iostream>
#include <string>
#include <vector>

#include "device/memory.h"
#include "image/CMatrix.h"
#include "src/app/command_line.h"
#include "src/app/fatal_error.h"
#include "src/app/improvement_passes.h"
#include "src/app/input_checks.h"
#include "src/app/model_files.h"
#include "src/app/preview.h"
#include "src/app/refined_views.h"
#include "src/app/run_error.h"
#include "src/app/run_summary.h"
#include "src/app/scene_input.h"
#include "src/app/stage_options.h"
#include "src/app/tiled_run.h"
#include "src/core/camera.h"
#include "src/core/settings.h"
#include "src/core/viewer_hooks.h"
#include "src/improve/view_neighbours.h"
#include "src/improve/view_particles.h"
#include "src/pose/pose_device.h"
#include "src/filter/filter_particles.h"
#include "src/io/model_output.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/particles/return_drifted_particles.h"
#include "src/seed/create_particles_from_superpixels.h"
#include "src/seed/create_superpixels.h"
#include "src/seed/measured_planes.h"
#include "src/seed/particles_to_images.h"
#include "src/seed/superpixel.h"
#include "src/tiles/run_plan.h"
#include "src/tiles/tile_files.h"
#include "src/visibility/backface_removal.h"
#include "src/visibility/support_filter.h"

namespace {

void filter_stage(std::vector<Particle>& particles, std::vector<float>& offsets, std::vector<float3>& normals,
                  const FilterOptions& options) {
  std::cout << " Filter particles,     radius = " << options.radius << "\n";
  std::cout << "                   #particles = " << particles.size() << "\n";
  filter_particles(particles, offsets, normals, options);
}

void write_model(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                 const std::vector<float3>& normals, const char* name) {
  writeParticlesToPLY(particles, offsets, normals, output_directory + name, model_color_names);
}

// With --improve-cameras the pose step needs the device BLAS; the device reports its memory first.
void start_device() {
  if (improve_cameras) throw_if(start_pose_device());
}

// Parse, prepare the output, read the views, start the fine model (on the scaffold of the
// superpixel-level model, or with the visible share on planes fitted to the measurements), filter,
// remove what no other view supports, write, summarise.
void run(int argc, char* argv[]) {
  const auto start = std::chrono::steady_clock::now();
  const std::vector<std::string> view_files = parse_command_line(argc, argv);
  make_output_directory();
  start_device();
  check_view_files(view_files);
  if (write_preview) check_preview_directory(output_directory + "/preview", n_keyframes);
  if (max_memory > 0) {
    run_in_tiles(view_files, start);
    return;
  }
  const std::string views_directory = output_directory + "/views";

  std::vector<Camera> cameras;
  std::vector<Camera*> camera_ptrs;
  std::vector<CMatrix<float>> depthmaps;
  std::vector<std::string> depth_paths;  // as the view files name them, for the refined views
  read_views(view_files, cameras, camera_ptrs, depthmaps, &depth_paths);
  if (improve_cameras) {
    throw_if(overlap_problem(camera_ptrs));
    throw_if(prepare_refined_views(views_directory, view_files));
  }
  const StageOptions stages = make_stage_options(cameras[0]);
  const InputDepths input = measure_input_depths(depthmaps);
  if (const std::string warning = depth_avg_warning(average_depth, input); !warning.empty())
    std::cerr << warning << std::endl;

  // Where the fine particles start: on the scaffold of the superpixel-level model, or with the
  // visible share on planes fitted to each pixel's own measurements (no superpixel model then).
  const bool scaffold = stages.fine_start == FineStart::superpixel_scaffold;
  std::vector<std::vector<Superpixel>> superpixels(scaffold ? n_keyframes : 0);
  for (std::size_t i = 0; i < superpixels.size(); ++i)
    create_superpixels(superpixels[i], depthmaps[i], camera_ptrs[i]->image, *camera_ptrs[i], average_depth,
                       superpixel_count);
  std::vector<Particle> sp_particles, particles;
  std::vector<float> sp_offsets, offsets;
  std::vector<float3> sp_normals, normals;
  // Superpixel-level model: one particle per superpixel, placed with the poses as they stand,
  // filtered on the union of all views.
  const auto superpixel_model = [&] {
    sp_particles.clear();
    sp_offsets.clear();
    sp_normals.clear();
    for (int i = 0; i < n_keyframes; ++i)
      create_particles_from_superpixels(sp_particles, sp_offsets, sp_normals, superpixels[i], CMatrix<float>(),
                                        CMatrix<float3>(), depthmaps[i], *camera_ptrs[i]);
    filter_stage(sp_particles, sp_offsets, sp_normals, stages.superpixel_filter);
    support_filter(sp_particles, sp_offsets, sp_normals, camera_ptrs, stages.superpixel_support);
  };
  // Fine model: one particle per pixel, on the scaffold (which stays, for the improvement passes)
  // or on the measured planes, then filtered.
  const float backface_tolerance = stages.radii.pixel;
  const auto fine_model = [&] {
    particles.clear();
    offsets.clear();
    normals.clear();
    if (scaffold) {
      for (int i = 0; i < n_keyframes; ++i) {
        const Camera& cam = *camera_ptrs[i];
        CMatrix<float> depth;
        CMatrix<float3> normal_map;
        particles_to_images(depth, normal_map, sp_particles, sp_offsets, sp_normals, superpixels[i], cam,
                            depth_range_min, depth_range_max);
        create_particles_from_depthmap(particles, offsets, normals, depth, normal_map, depthmaps[i], cam.image, cam,
                                       depth_range_min, depth_range_max);
      }
    } else {
      // Few views: each fine particle starts on a plane fitted to its own pixel's measured
      // neighbourhood; no superpixel model is made, as its planes straddle thin objects and their
      // background and disagree with the measurements on curved surfaces.
      particles_on_measured_planes(particles, offsets, normals, camera_ptrs, depthmaps, depth_range_min,
                                   depth_range_max);
    }
    if (use_backface_visibility_test)
      remove_backfacing_particles(particles, offsets, normals, camera_ptrs, backface_tolerance, 1);
    // The visible share judges the fine model once, after its filter, when the views' particles
    // have met on common surfaces.
    if (!stages.pixel_support.rule.visible())
      support_filter(particles, offsets, normals, camera_ptrs, stages.pixel_support);
    filter_stage(particles, offsets, normals, stages.pixel_filter);
    if (stages.drift_limit > 0.0f) {
      const ReturnedParticles back =
          return_drifted_particles(particles, offsets, normals, stages.drift_limit, stages.turn_limit);
      std::cout << "  back on their measured planes: " << back.moved << " points, " << back.turned << " normals\n";
    }
  };

  std::size_t superpixel_points = 0;
  if (scaffold) {
    superpixel_model();
    sendParticlesToLumvik(sp_particles, sp_offsets, {}, "particles", debug_lumvik_particle_iteration++);
    write_model(sp_particles, sp_offsets, sp_normals, kSuperpixelModelName);
    superpixel_points = sp_particles.size();
  }
  fine_model();
  int pass = 0;
  if (improve_cameras) {
    // Camera alignment, and the model made anew from the measured depth maps with the new poses.
    // The scaffold is made anew once, after the first pose step, which corrects the poses the most;
    // later passes carry it along with its cameras, since the fine particles of a view start from
    // that view's own scaffold alone and the scaffold costs most of a model.
    run_improvement_passes(particles, offsets, normals, camera_ptrs, depthmaps,
                           [&](bool first, const std::vector<Camera>& before) {
                             if (scaffold && first) superpixel_model();
                             if (scaffold && !first) move_particles_with_cameras(sp_particles, sp_normals, before, camera_ptrs);
                             fine_model();
                           },
                           pass);
  } else {
    close_pass(pass);
  }

  if (use_backface_visibility_test) {
    write_model(particles, offsets, normals, kBackfaceModelName1);
    remove_backfacing_particles(particles, offsets, normals, camera_ptrs, backface_tolerance, 2);
    write_model(particles, offsets, normals, kBackfaceModelName2);
  }
  support_filter(particles, offsets, normals, camera_ptrs, stages.pixel_support);
  write_model(particles, offsets, normals, kModelName);
  RunSummary summary;
  summary.backface_models = use_backface_visibility_test;
  if (improve_cameras) {
    throw_if(write_refined_views(views_directory, view_files, cameras, depth_paths));
    summary.views_directory = views_directory;
    summary.refined_views = n_keyframes;
  }
  if (write_preview) {
    summary.preview_directory = output_directory + "/preview";
    summary.preview_images = write_preview_images(particles, offsets, normals, camera_ptrs, summary.preview_directory);
  }
  device::reset();

  summary.superpixel_model = scaffold;
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
}

// Ends the run with one line on standard error, after the progress printed so far.
int fail(const std::exception& e) {
  remove_new_empty_output_directory();
  std::cout.flush();
  std::cerr << e.what() << "\n";
  return 1;
}

}  // namespace

// Errors of the input and of the results end the run with one line and status 1; any other
// exception is an internal failure and ends the process through report_internal_errors.
int main(int argc, char* argv[]) {
  report_internal_errors();
  try {
    run(argc, argv);
  } catch (const CommandLineExit& e) {
    return e.status;
  } catch (const RunError& e) {
    return fail(e);
  } catch (const ViewFileError& e) {
    return fail(e);
  } catch (const ModelWriteError& e) {
    return fail(e);
  } catch (const ImprovementError& e) {
    return fail(e);
  } catch (const TileBudgetError& e) {
    return fail(e);
  } catch (const TileFileError& e) {
    return fail(e);
  }
  return 0;
}
