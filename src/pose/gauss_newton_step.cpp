#include "src/pose/gauss_newton_step.h"

#include <Eigen/QR>
#include <stdexcept>
#include <string>

#include "ketra/algorithms/basic.h"
#include "ketra/tools.h"
#include "src/pose/cublas_dynamic.h"
#include "src/pose/pose_system.h"

namespace {

// Planes first to last of the system array, as a view.
ketra::Array<float, 3> planes(ketra::Array<float, 3> const& system, int first, int last) {
  ketra::Array<float, 4> view =
      ketra::block(ketra::internal::as4D(system), ketra::Range(), ketra::Range(), ketra::Range(first, last));
  return ketra::internal::decreaseArrayDimension<float, 4, 3>(view);
}

void check_status(blasStatus_t status, char const* call) {
  if (status != BLAS_STATUS_SUCCESS)
    throw std::runtime_error(std::string("gauss_newton_step: ") + call + " failed with status " +
                             std::to_string(static_cast<int>(status)));
}

template <class T, std::size_t N>
void download(std::array<T, N>& host, ketra::Array<T, 2> const& a) {
  ketra::Array<T, 2> h = ketra::arrayFromHostMemory(host.data(), a.extents.x, a.extents.y);
  ketra::arrayCopy(h, a);
}

}  // namespace

NormalEquations photometric_equations(PoseLevelArrays& arrays, Projection const& delta, blasHandle_t blas) {
  const float inv_fx = 1.0f / delta.fx, inv_fy = 1.0f / delta.fy;
  ketra::Array<float, 3> residual = planes(arrays.system, 0, 2);
  ketra::Array<float, 3> jacobian = planes(arrays.system, 3, 20);
  computeDifferenceImage(residual, arrays.image, arrays.rendered.image, arrays.rendered.depth, 0.5f, delta, inv_fx,
                         inv_fy, delta.cx, delta.cy);
  computeGradientPsi(jacobian, arrays.gradients, arrays.rendered.depth, delta, inv_fx, inv_fy, delta.cx, delta.cy);
  setNANtoZero(arrays.system, arrays.validity, arrays.rendered.depth);
  return normal_equations(arrays.system, 3, arrays, blas);
}

PoseUpdate gauss_newton_step(PoseLevelArrays& arrays, Projection const& level, PoseUpdate const& x,
                             blasHandle_t blas) {
  const NormalEquations e = photometric_equations(arrays, pose_delta(level, x), blas);
  return solve_normal_equations(e.H, e.g);
}

NormalEquations normal_equations(ketra::Array<float, 3> const& system, int channels, PoseLevelArrays& arrays,
                                 blasHandle_t blas) {
  // The packed planes are a K x 6 column-major matrix J (one column per parameter) after the
  // K residuals r; rejected pixels are zero rows.
  const int K = static_cast<int>(system.extents.x * system.extents.y * static_cast<unsigned int>(channels));
  const float* r = system.data;
  const float* J = system.data + K;
  const float one = 1.0f, minus_one = -1.0f, zero = 0.0f;
  ketra::set(arrays.normal_matrix, 0.0f);
  check_status(cublas.cublasSgemm_v2(blas, BLAS_OP_T, BLAS_OP_N, 6, 6, K, &one, J, K, J, K, &zero,
                                     arrays.normal_matrix.data, 6),
               "cublasSgemm_v2");
  check_status(cublas.cublasSgemv_v2(blas, BLAS_OP_T, K, 6, &minus_one, J, K, r, 1, &zero, arrays.gradient.data, 1),
               "cublasSgemv_v2");
  NormalEquations e;
  download(e.H, arrays.normal_matrix);
  download(e.g, arrays.gradient);
  return e;
}

PoseUpdate solve_normal_equations(std::array<float, 36> const& H, std::array<float, 6> const& g) {
  using Matrix6 = Eigen::Matrix<float, 6, 6>;
  using Vector6 = Eigen::Matrix<float, 6, 1>;
  const Eigen::ColPivHouseholderQR<Matrix6> qr(Eigen::Map<const Matrix6>(H.data()));
  const Eigen::Index rank = qr.rank();
  PoseUpdate x{};
  if (rank == 0) return x;
  // x = P [R11^-1 (Q^T g)_1; 0]: the leading rank x rank block of R, the rest of x zero.
  Vector6 c = qr.householderQ().adjoint() * Eigen::Map<const Vector6>(g.data());
  c.head(rank) = qr.matrixR().topLeftCorner(rank, rank).triangularView<Eigen::Upper>().solve(c.head(rank));
  for (Eigen::Index i = 0; i < 6; ++i) x[qr.colsPermutation().indices()(i)] = i < rank ? c(i) : 0.0f;
  return x;
}
