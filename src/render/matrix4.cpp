#include "src/render/matrix4.h"

Matrix4 pose_matrix(const Camera& camera) {
  Matrix4 p{};
  // Camera keeps R by columns: element (r, c) at [3 * c + r].
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) p.m[4 * r + c] = camera.R[3 * c + r];
    p.m[4 * r + 3] = camera.t[r];
  }
  p.m[15] = 1.0f;
  return p;
}

Matrix4 multiply(const Matrix4& a, const Matrix4& b) {
  Matrix4 p{};
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 4; ++c) {
      float sum = 0.0f;
      for (int k = 0; k < 4; ++k) sum += a.m[4 * r + k] * b.m[4 * k + c];
      p.m[4 * r + c] = sum;
    }
  return p;
}

bool invert(const Matrix4& a, Matrix4& inverse) {
  const float* m = a.m;
  // 2x2 determinants of the upper two rows (s) and the lower two rows (c), by column pairs
  // (0,1), (0,2), (0,3), (1,2), (1,3), (2,3).
  const float s0 = m[0] * m[5] - m[1] * m[4], s1 = m[0] * m[6] - m[2] * m[4], s2 = m[0] * m[7] - m[3] * m[4];
  const float s3 = m[1] * m[6] - m[2] * m[5], s4 = m[1] * m[7] - m[3] * m[5], s5 = m[2] * m[7] - m[3] * m[6];
  const float c0 = m[8] * m[13] - m[9] * m[12], c1 = m[8] * m[14] - m[10] * m[12];
  const float c2 = m[8] * m[15] - m[11] * m[12], c3 = m[9] * m[14] - m[10] * m[13];
  const float c4 = m[9] * m[15] - m[11] * m[13], c5 = m[10] * m[15] - m[11] * m[14];
  const float det = s0 * c5 - s1 * c4 + s2 * c3 + s3 * c2 - s4 * c1 + s5 * c0;
  if (det == 0.0f) return false;
  const float f = 1.0f / det;
  float* o = inverse.m;
  o[0] = (m[5] * c5 - m[6] * c4 + m[7] * c3) * f;
  o[1] = (-m[1] * c5 + m[2] * c4 - m[3] * c3) * f;
  o[2] = (m[13] * s5 - m[14] * s4 + m[15] * s3) * f;
  o[3] = (-m[9] * s5 + m[10] * s4 - m[11] * s3) * f;
  o[4] = (-m[4] * c5 + m[6] * c2 - m[7] * c1) * f;
  o[5] = (m[0] * c5 - m[2] * c2 + m[3] * c1) * f;
  o[6] = (-m[12] * s5 + m[14] * s2 - m[15] * s1) * f;
  o[7] = (m[8] * s5 - m[10] * s2 + m[11] * s1) * f;
  o[8] = (m[4] * c4 - m[5] * c2 + m[7] * c0) * f;
  o[9] = (-m[0] * c4 + m[1] * c2 - m[3] * c0) * f;
  o[10] = (m[12] * s4 - m[13] * s2 + m[15] * s0) * f;
  o[11] = (-m[8] * s4 + m[9] * s2 - m[11] * s0) * f;
  o[12] = (-m[4] * c3 + m[5] * c1 - m[6] * c0) * f;
  o[13] = (m[0] * c3 - m[1] * c1 + m[2] * c0) * f;
  o[14] = (-m[12] * s3 + m[13] * s1 - m[14] * s0) * f;
  o[15] = (m[8] * s3 - m[9] * s1 + m[10] * s0) * f;
  return true;
}
