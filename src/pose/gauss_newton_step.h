#pragma once

#include <array>

#include "device/blas/blas_v2.h"
#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/pose/pose_update.h"
#include "src/render/projection.h"
#include "src/render/render_buffer.h"

// The device arrays of one pyramid level that a Gauss-Newton step works on.
struct PoseLevelArrays {
  ketra::Array<uchar4, 2> image;        // (w, h) the real image of the level
  ketra::Array<float, 3> gradients;     // (w, h, 6) its x and y derivatives per colour
  RenderBuffer rendered;                // (w, h) the synthetic view
  ketra::Array<float, 3> system;        // (w, h, 21) packed: residual planes 0-2, Jacobian planes 3-20
  ketra::Array<float, 2> normal_matrix; // (6, 6) packed
  ketra::Array<float, 2> gradient;      // (6, 1) packed
  ketra::Array<uchar4, 2> validity;     // (w, h) used / rejected / empty per pixel, or no data
};

// One step: the residual and Jacobian of every pixel at the pose update x, the normal equations
// H = J^T J and g = -J^T r by the device BLAS, and their solution, which is the new x. level
// carries the level's size and intrinsics.
PoseUpdate gauss_newton_step(PoseLevelArrays& arrays, Projection const& level, PoseUpdate const& x,
                             blasHandle_t blas);

// H = J^T J (column-major) and g = -J^T r of a packed system of `channels` residual planes
// followed by 6 * channels Jacobian planes (parameter k, channel c in plane channels * (k + 1) + c),
// formed by the device BLAS in the level's 6 x 6 and 6 x 1 arrays and copied to the host.
struct NormalEquations {
  std::array<float, 36> H;
  std::array<float, 6> g;
};
NormalEquations normal_equations(ketra::Array<float, 3> const& system, int channels, PoseLevelArrays& arrays,
                                 blasHandle_t blas);

// The photometric rows of every pixel at the motion delta (which carries the level's size and
// intrinsics) into arrays.system, and their normal equations.
NormalEquations photometric_equations(PoseLevelArrays& arrays, Projection const& delta, blasHandle_t blas);

// The solution of H x = g (H column-major) by QR with column pivoting at the decomposition's
// default rank threshold: 0 when the rank is 0, else the components beyond the rank are 0.
PoseUpdate solve_normal_equations(std::array<float, 36> const& H, std::array<float, 6> const& g);
inline PoseUpdate solve_normal_equations(NormalEquations const& e) { return solve_normal_equations(e.H, e.g); }
