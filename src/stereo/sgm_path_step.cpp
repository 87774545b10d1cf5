#include "src/stereo/sgm_path_step.h"

#include <cfloat>
#include <cmath>

#include "src/core/simd_lanes.h"

namespace {

inline float smaller(float a, float b) { return b < a ? b : a; }

// Label l of the recurrence, for any l; the neighbours that do not exist are left out.
inline float step_one(float* lr, const float* prev, const float* c, float* s, int L, int l, float P1, float jump,
                      float m) {
  float t = smaller(prev[l], jump);
  if (l > 0 || l + 1 < L) {
    // min(prev[l-1] + P1, prev[l+1] + P1) is min(prev[l-1], prev[l+1]) + P1: rounding is monotonic.
    const float neighbour = l == 0 ? prev[1] : l + 1 == L ? prev[l - 1] : smaller(prev[l - 1], prev[l + 1]);
    t = smaller(t, neighbour + P1);
  }
  const float v = c[l] + t - m;
  lr[l] = v;
  s[l] += v;
  return v;
}

}  // namespace

// Eight labels side by side; each lane computes exactly what the scalar code computes.
LANE_KERNEL float sgm_start_step(float* lr, const float* c, float* s, int L) {
  float m = FLT_MAX;
  int l = 0;
  lane_float vm = lane_splat(FLT_MAX);
  for (; l + kLanes <= L; l += kLanes) {
    const lane_float cv = lane_load(c + l), sv = lane_load(s + l);
    lane_store(lr + l, cv);
    lane_store(s + l, sv + cv);
    vm = cv < vm ? cv : vm;
  }
  for (int k = 0; k < kLanes; ++k) m = smaller(m, vm[k]);
  for (; l < L; ++l) {
    lr[l] = c[l];
    s[l] += c[l];
    m = smaller(m, c[l]);
  }
  return m;
}

LANE_KERNEL float sgm_path_step(float* lr, const float* prev, const float* c, float* s, int L, float P1, float P2,
                                float m) {
  const float jump = m + P2;
  float new_m = step_one(lr, prev, c, s, L, 0, P1, jump, m);
  // Labels 1 .. L - 2 have both neighbours: eight at a time.
  int l = 1;
  lane_float vm = lane_splat(FLT_MAX);
  const lane_float vjump = lane_splat(jump), vP1 = lane_splat(P1), vm_prev = lane_splat(m);
  for (; l + kLanes <= L - 1; l += kLanes) {
    const lane_float below = lane_load(prev + l - 1), here = lane_load(prev + l), above = lane_load(prev + l + 1);
    const lane_float cv = lane_load(c + l), sv = lane_load(s + l);
    const lane_float neighbour = (above < below ? above : below) + vP1;
    lane_float t = vjump < here ? vjump : here;
    t = neighbour < t ? neighbour : t;
    const lane_float v = cv + t - vm_prev;
    lane_store(lr + l, v);
    lane_store(s + l, sv + v);
    vm = v < vm ? v : vm;
  }
  for (int k = 0; k < kLanes; ++k) new_m = smaller(new_m, vm[k]);
  for (; l < L; ++l) new_m = smaller(new_m, step_one(lr, prev, c, s, L, l, P1, jump, m));
  return new_m;
}

float sgm_refine_label(int b, float v, float v_plus, float v_minus, int L) {
  if (b == 0 || b == L - 1) return static_cast<float>(b);
  // The parabola y = A x^2 + B x + C through (b, v), (b + 1, v_plus), (b - 1, v_minus), by
  // Cramer's rule on the system with rows (x^2, x, 1).
  const float x0 = static_cast<float>(b), x1 = static_cast<float>(b + 1), x2 = static_cast<float>(b - 1);
  const float y0 = v, y1 = v_plus, y2 = v_minus;
  const float det = x0 * x0 * (x1 - x2) - x0 * (x1 * x1 - x2 * x2) + (x1 * x1 * x2 - x2 * x2 * x1);
  if (det == 0.0f) return x0;
  const float det_A = y0 * (x1 - x2) - x0 * (y1 - y2) + (y1 * x2 - y2 * x1);
  const float det_B = x0 * x0 * (y1 - y2) - y0 * (x1 * x1 - x2 * x2) + (x1 * x1 * y2 - x2 * x2 * y1);
  const float A = det_A / det, B = det_B / det;
  const float vertex = -B / (2.0f * A);
  // A maximum (A < 0) and a vertex beyond b +- 1 are accepted as well.
  return std::isfinite(vertex) && vertex > 0.0f && vertex < static_cast<float>(L) ? vertex : x0;
}
