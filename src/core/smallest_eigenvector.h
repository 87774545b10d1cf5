#pragma once

#include <Eigen/Core>

// Eigenvector of the smallest eigenvalue of a symmetric 3x3 matrix, by the solver's iterative
// form in single precision. Ties go to the lower index: k = (w0 > w1) ? 1 : 0, then 2 if w[k] > w2.
Eigen::Vector3f smallest_eigenvector(const Eigen::Matrix3f& matrix);
