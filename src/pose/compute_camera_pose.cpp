#include "src/pose/compute_camera_pose.h"

#include <cstdio>
#include <functional>
#include <stdexcept>
#include <string>

#include "ketra/algorithms/conversion.h"
#include "ketra/check_error.h"
#include "ketra/image_export.h"
#include "ketra/tools.h"
#include "src/core/settings.h"
#include "src/particles/threshold_particles.h"
#include "src/pose/cublas_dynamic.h"
#include "src/pose/gauss_newton_step.h"
#include "src/pose/pose_level.h"
#include "src/pose/pose_system.h"
#include "src/pose/pyramid.h"
#include "src/render/depth_from_points.h"
#include "src/render/device_arrays.h"
#include "src/render/points.h"
#include "src/render/render_depthmap.h"
#include "src/render/render_points.h"

namespace {

constexpr int max_rounds = 50;
constexpr int steps_per_round = 5;

// Renders the synthetic view from the camera's current pose into the level's buffer; the
// argument is the level's scale.
using RenderView = std::function<void(RenderBuffer&, float)>;

[[noreturn]] void fail(Camera const& camera, std::string const& cause) {
  throw std::runtime_error("compute_camera_pose: camera " + std::to_string(camera.index) + ": " + cause);
}

std::string size_text(int width, int height) { return std::to_string(width) + " x " + std::to_string(height); }

// The pyramid's arguments: a factor outside (0, 1) would divide by a zero logarithm or grow the
// levels without end, an empty camera would take the logarithm of infinity.
void check_pyramid(Camera const& camera, float pyramid_factor, int min_height) {
  if (camera.width < 1 || camera.height < 1) fail(camera, "its size is " + size_text(camera.width, camera.height));
  if (!(pyramid_factor > 0.0f && pyramid_factor < 1.0f))
    fail(camera, "the pyramid factor must lie between 0 and 1, got " + std::to_string(pyramid_factor));
  if (min_height < 1) fail(camera, "the smallest level height must be at least 1, got " + std::to_string(min_height));
}

// What the alignment needs before any work: an image of the camera's size to read and a
// resolved BLAS to call.
void check_ready(Camera const& camera) {
  if (camera.image.xSize != camera.width || camera.image.ySize != camera.height)
    fail(camera, "its image is " + size_text(camera.image.xSize, camera.image.ySize) + " pixels, its size " +
                     size_text(camera.width, camera.height));
  if (cublas.cublasCreate_v2 == nullptr || cublas.cublasSgemm_v2 == nullptr || cublas.cublasSgemv_v2 == nullptr ||
      cublas.cublasDestroy_v2 == nullptr)
    fail(camera, "the device BLAS is not loaded");
}

std::string debug_image_name(char const* stem, int level, int round) {
  char name[64];
  std::snprintf(name, sizeof(name), "%s%d_%03d.png", stem, level, round);
  return name;
}

// Rounds of render, five Gauss-Newton steps and pose update at one level, until the update is
// negligible or the rounds run out.
void align_level(Camera& camera, PoseLevelArrays& arrays, int level_index, float scale, RenderView const& render,
                 blasHandle_t blas) {
  const unsigned int w = arrays.system.extents.x, h = arrays.system.extents.y;
  ketra::Array<float, 3> rendered_float = allocate_pitched<float, 3>(w, h, 3);
  for (int round = 0; round < max_rounds;) {
    render(arrays.rendered, scale);
    if (debug_images_camera_pose)
      saveImageToPNG(arrays.rendered.image, debug_image_name("rendered_color_", level_index, round));
    convertToFloat(rendered_float, arrays.rendered.image);
    const Projection level = projection_from_camera(camera, static_cast<int>(w), static_cast<int>(h), 0.0f, empty_depth);
    PoseUpdate x{};
    for (int step = 0; step < steps_per_round; ++step) x = gauss_newton_step(arrays, level, x, blas);
    if (debug_images_camera_pose && arrays.validity.data != nullptr)
      saveImageToPNG(arrays.validity, debug_image_name("valid_pixels_", level_index, round));
    apply_pose_update(camera, x);
    ++round;
    if (pose_update_converged(x)) break;
  }
  ketra::freeArray(rendered_float);
}

// The pyramid from the coarsest level down to the full image.
void align_camera(Camera& camera, float pyramid_factor, int min_height, RenderView const& render,
                  bool with_validity) {
  const int levels = pyramid_levels(camera.height, min_height, pyramid_factor);
  blasHandle_t blas = nullptr;
  if (cublas.cublasCreate_v2(&blas) != BLAS_STATUS_SUCCESS) fail(camera, "cublasCreate_v2 failed");
  ketra::Array<uchar4, 2> full_image = upload(camera.image);
  for (int L = levels; L >= 0; --L) {
    const PyramidLevel level = pyramid_level(camera.width, camera.height, pyramid_factor, L);
    PoseLevelArrays arrays = allocate_level(full_image, level, with_validity);
    align_level(camera, arrays, L, level.scale, render, blas);
    free_level(arrays);
  }
  ketra::freeArray(full_image);
  cublas.cublasDestroy_v2(blas);
}

}  // namespace

void compute_camera_pose(Camera& camera, std::vector<Particle> const& particles, std::vector<float> const& offsets,
                         std::vector<float3> const& normals, float ignored, float pyramid_factor, int min_height) {
  check_pyramid(camera, pyramid_factor, min_height);
  if (pyramid_levels(camera.height, min_height, pyramid_factor) < 0) return;
  check_ready(camera);
  if (particles.empty()) fail(camera, "the model has no particles");

  // Only the particles that reach the camera's view take part.
  Points all = createPoints(particles, offsets, normals);
  RenderBuffer full = createRenderBuffer(camera.width, camera.height);
  std::vector<int> flags = contributing_points(full, all, camera, ignored, 0.0f, empty_depth, 1.0f);
  freeRenderBuffer(full);
  freePoints(all);
  std::vector<Particle> visible = particles;
  std::vector<float> visible_offsets = offsets;
  std::vector<float3> visible_normals = normals;
  threshold_particles<int>(flags, visible, visible_offsets, visible_normals, 1, 1);
  if (visible.empty()) fail(camera, "no particle of the model reaches its view");

  Points points = createPoints(visible, visible_offsets, visible_normals);
  align_camera(
      camera, pyramid_factor, min_height,
      [&](RenderBuffer& rb, float) { render_points(rb, points, camera, ignored, 0.0f, empty_depth, 1.0f); },
      debug_images_camera_pose);
  freePoints(points);
}

void compute_camera_pose(Camera& camera, Camera const& reference, CMatrix<float> const& reference_depth,
                         float pyramid_factor, int min_height) {
  check_pyramid(camera, pyramid_factor, min_height);
  if (pyramid_levels(camera.height, min_height, pyramid_factor) < 0) return;
  check_ready(camera);
  // The warp reads the reference image at every pixel of the depth map.
  if (reference_depth.xSize < 1 || reference.image.xSize != reference_depth.xSize ||
      reference.image.ySize != reference_depth.ySize)
    fail(camera, "the reference depth map is " + size_text(reference_depth.xSize, reference_depth.ySize) +
                     " pixels, the reference image " + size_text(reference.image.xSize, reference.image.ySize) +
                     " pixels");

  ketra::Array<float, 2> depth = upload(reference_depth);
  ketra::Array<uchar4, 2> image = upload(reference.image);
  align_camera(
      camera, pyramid_factor, min_height,
      [&](RenderBuffer& rb, float scale) {
        render_depthmap(rb, depth, image, reference, camera, 0.0f, empty_depth, 1.0f / scale);
      },
      false);
  ketra::freeArray(depth);
  ketra::freeArray(image);
}
