#include "src/core/smallest_eigenvector.h"

#include <Eigen/Eigenvalues>

Eigen::Vector3f smallest_eigenvector(const Eigen::Matrix3f& matrix) {
  Eigen::SelfAdjointEigenSolver<Eigen::Matrix3f> solver;
  solver.compute(matrix, Eigen::ComputeEigenvectors);
  const Eigen::Vector3f& w = solver.eigenvalues();
  int k = (w(0) > w(1)) ? 1 : 0;
  if (w(k) > w(2)) k = 2;
  return solver.eigenvectors().col(k);
}
