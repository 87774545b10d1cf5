#pragma once

#include "src/core/camera.h"

// A 4x4 float matrix, row by row: m[4 * r + c].
struct Matrix4 {
  float m[16];
};

// The rigid transform [R t; 0 0 0 1] of a camera's world-to-camera pose.
Matrix4 pose_matrix(const Camera& camera);

Matrix4 multiply(const Matrix4& a, const Matrix4& b);

// The inverse of a general 4x4 matrix by cofactors, in float. Returns false, leaving inverse
// unchanged, when the determinant is 0.
bool invert(const Matrix4& a, Matrix4& inverse);
