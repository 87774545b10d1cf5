#include "src/stereo/matching_projection.h"

#include <cfloat>

#include "src/render/render_depthmap.h"

ProjectionMatrix matching_projection(Camera const& reference, Camera const& other) {
  const Projection r = relative_projection(reference, other, other.width, other.height, 0.0f, FLT_MAX);
  // Rows (fx R0 + cx R2, fy R1 + cy R2, R2), and the same for t: u = fx X / Z + cx after division.
  ProjectionMatrix P;
  for (int c = 0; c < 3; ++c) {
    P.m[c] = r.fx * r.R[c] + r.cx * r.R[6 + c];
    P.m[4 + c] = r.fy * r.R[3 + c] + r.cy * r.R[6 + c];
    P.m[8 + c] = r.R[6 + c];
  }
  P.m[3] = r.fx * r.t[0] + r.cx * r.t[2];
  P.m[7] = r.fy * r.t[1] + r.cy * r.t[2];
  P.m[11] = r.t[2];
  return P;
}
