#include "src/pose/align_to_model.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "ketra/tools.h"
#include "src/pose/cublas_dynamic.h"
#include "src/pose/gauss_newton_step.h"
#include "src/pose/pose_level.h"
#include "src/pose/pose_system.h"
#include "src/pose/pose_update.h"
#include "src/render/render_points_blended.h"

namespace {

[[noreturn]] void fail(Camera const& camera, std::string const& cause) {
  throw std::runtime_error("align_camera_to_model: camera " + std::to_string(camera.index) + ": " + cause);
}

void check(Camera const& camera, CMatrix<float> const& measured_depth, ModelAlignment const& o) {
  if (camera.width < 1 || camera.height < 1 || camera.image.xSize != camera.width ||
      camera.image.ySize != camera.height)
    fail(camera, "its image does not have its size");
  if (measured_depth.xSize != camera.width || measured_depth.ySize != camera.height)
    fail(camera, "its depth map does not have its size");
  if (!(o.pyramid_factor > 0.0f && o.pyramid_factor < 1.0f) || o.min_height < 1 || o.steps_per_round < 1 ||
      o.max_rounds < 1 || o.max_full_rounds < 1)
    fail(camera, "the pyramid or the round counts are out of range");
  if (cublas.cublasCreate_v2 == nullptr || cublas.cublasSgemm_v2 == nullptr || cublas.cublasSgemv_v2 == nullptr ||
      cublas.cublasDestroy_v2 == nullptr)
    fail(camera, "the device BLAS is not loaded");
}

// A round's motion is negligible when it moves the image of the scene by less than the given
// share of a pixel: its turn times the focal length, its shift at the scene's depth.
bool negligible(RigidMotion const& m, float focal, float depth, float pixels) {
  const float sx = m.R[7] - m.R[5], sy = m.R[2] - m.R[6], sz = m.R[3] - m.R[1];
  const float turn = 0.5f * std::sqrt(sx * sx + sy * sy + sz * sz);
  const float shift = std::sqrt(m.t[0] * m.t[0] + m.t[1] * m.t[1] + m.t[2] * m.t[2]);
  return turn * focal < pixels && shift * focal / depth < pixels;
}

// The device arrays of one level: those of the photometric rows, the depth rows and the blended
// rendering's depth sums.
struct LevelWork {
  PoseLevelArrays arrays;
  ketra::Array<float, 3> depth_rows;  // (w, h, 7) packed
  ketra::Array<float, 2> depth_sum;
};

LevelWork allocate_work(ketra::Array<uchar4, 2> const& full_image, PyramidLevel const& level) {
  LevelWork work{allocate_level(full_image, level, false), {}, {}};
  ketra::Array<float, 4> rows =
      ketra::mallocDeviceArray<float>(make_uint4(level.width, level.height, 7, 1), ketra::Packed);
  work.depth_rows = ketra::internal::decreaseArrayDimension<float, 4, 3>(rows);
  work.depth_sum = allocate_pitched<float, 2>(level.width, level.height, 1);
  return work;
}

void free_work(LevelWork& work) {
  ketra::freeArray(work.depth_rows);
  ketra::freeArray(work.depth_sum);
  free_level(work.arrays);
}

// The projection of the camera at the level's size.
Projection level_projection(Camera const& camera, LevelWork const& work) {
  return projection_from_camera(camera, static_cast<int>(work.depth_sum.extents.x),
                                static_cast<int>(work.depth_sum.extents.y), 0.0f, empty_depth);
}

// The normal equations of the photometric and the depth rows at the motion m from the pose the
// model was rendered from.
NormalEquations equations(LevelWork& work, MeasuredDepth const& measured, Projection const& level,
                          RigidMotion const& m, ModelAlignment const& o, blasHandle_t blas) {
  Projection delta = level;
  for (int i = 0; i < 9; ++i) delta.R[i] = m.R[i];
  for (int i = 0; i < 3; ++i) delta.t[i] = m.t[i];
  NormalEquations e = photometric_equations(work.arrays, delta, blas);
  if (o.depth_weight > 0.0f) {
    computeDepthResidual(work.depth_rows, work.arrays.rendered.depth, work.arrays.rendered.normal_sum, measured,
                         delta, 1.0f / delta.fx, 1.0f / delta.fy, delta.cx, delta.cy, o.depth_threshold,
                         o.depth_weight);
    setNANtoZero(work.depth_rows, ketra::Array<uchar4, 2>{}, work.arrays.rendered.depth);
    const NormalEquations d = normal_equations(work.depth_rows, 1, work.arrays, blas);
    for (int i = 0; i < 36; ++i) e.H[i] += d.H[i];
    for (int i = 0; i < 6; ++i) e.g[i] += d.g[i];
  }
  return e;
}

// Returns the number of rounds run.
int align_level(Camera& camera, LevelWork& work, MeasuredDepth const& measured, Points const& model,
                ModelAlignment const& o, int max_rounds, blasHandle_t blas) {
  int round = 0;
  while (round < max_rounds) {
    ++round;
    const Projection level = level_projection(camera, work);
    render_points_blended(work.arrays.rendered, work.depth_sum, level, model, o.blend_radii);
    RigidMotion m;
    for (int step = 0; step < o.steps_per_round; ++step)
      m = compose_update(m, solve_normal_equations(equations(work, measured, level, m, o, blas)));
    apply_rigid_motion(camera, m);
    if (negligible(m, level.fx, o.scene_depth, o.converged_pixels)) break;
  }
  return round;
}

// What the alignment of a camera holds for the whole of its run: the BLAS handle, its image and
// its measured depth on the device.
struct CameraWork {
  blasHandle_t blas = nullptr;
  ketra::Array<uchar4, 2> image;
  MeasuredDepth measured;
};

CameraWork start_camera(Camera const& camera, CMatrix<float> const& measured_depth) {
  CameraWork c;
  if (cublas.cublasCreate_v2(&c.blas) != BLAS_STATUS_SUCCESS) fail(camera, "cublasCreate_v2 failed");
  c.image = upload(camera.image);
  c.measured = {upload(measured_depth), camera.K[0], camera.K[4], camera.K[6], camera.K[7]};
  return c;
}

void end_camera(CameraWork& c) {
  ketra::freeArray(c.measured.depth);
  ketra::freeArray(c.image);
  cublas.cublasDestroy_v2(c.blas);
}

}  // namespace

std::vector<int> align_camera_to_model(Camera& camera, Points const& model, CMatrix<float> const& measured_depth,
                                       ModelAlignment const& o) {
  check(camera, measured_depth, o);
  // An image lower than the coarsest level is aligned at its own size alone.
  const int levels = o.full_size_only ? 0 : std::max(0, pyramid_levels(camera.height, o.min_height, o.pyramid_factor));
  CameraWork c = start_camera(camera, measured_depth);
  std::vector<int> rounds;
  for (int L = levels; L >= 0; --L) {
    LevelWork work = allocate_work(c.image, pyramid_level(camera.width, camera.height, o.pyramid_factor, L));
    rounds.push_back(align_level(camera, work, c.measured, model, o, L == 0 ? o.max_full_rounds : o.max_rounds, c.blas));
    free_work(work);
  }
  end_camera(c);
  return rounds;
}

std::vector<NormalEquations> alignment_equations(Camera const& camera, std::vector<Points const*> const& models,
                                                 CMatrix<float> const& measured_depth, ModelAlignment const& o) {
  check(camera, measured_depth, o);
  CameraWork c = start_camera(camera, measured_depth);
  LevelWork work = allocate_work(c.image, pyramid_level(camera.width, camera.height, o.pyramid_factor, 0));
  const Projection level = level_projection(camera, work);
  std::vector<NormalEquations> result;
  for (Points const* model : models) {
    render_points_blended(work.arrays.rendered, work.depth_sum, level, *model, o.blend_radii);
    result.push_back(equations(work, c.measured, level, RigidMotion{}, o, c.blas));
  }
  free_work(work);
  end_camera(c);
  return result;
}
