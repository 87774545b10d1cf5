#include "src/refine/refinement_scores.h"

#include <cmath>
#include <cstddef>
#include <numbers>

std::vector<float> refinement_offsets(float radius) {
  const float s = radius * 0.125f;
  return {0.0f, 2.0f * s, -2.0f * s, 4.0f * s, 4.0f * s, 8.0f * s, -8.0f * s};
}

void accumulate_ncc(CTensor<float2>& accumulator, CMatrix<float> const& ncc, int k) {
#pragma omp parallel for schedule(static)
  for (int y = 0; y < ncc.ySize; ++y)
    for (int x = 0; x < ncc.xSize; ++x) {
      const float v = ncc(x, y);
      if (!(std::fabs(v) <= 3.4028235e38f)) continue;  // NaN or infinite: no score
      float2& a = accumulator(x, y, k);
      a.x += v;
      a.y += 1.0f;
    }
}

void choose_offsets(CMatrix<float>& depth, CMatrix<float>& scores, CTensor<float2> const& accumulator,
                    std::vector<float> const& offsets) {
  const int last = static_cast<int>(offsets.size()) - 1;
#pragma omp parallel for schedule(static)
  for (int y = 0; y < depth.ySize; ++y)
    for (int x = 0; x < depth.xSize; ++x) {
      int best = last;
      for (int k = 0; k <= last; ++k) {
        const float2 a = accumulator(x, y, k);
        if (!(a.y >= 3.0f)) continue;
        const float m = a.x / a.y;
        const float score = static_cast<float>(1.0 - static_cast<double>(std::acos(m)) / std::numbers::pi);
        if (score > scores(x, y)) {
          scores(x, y) = score;
          best = k;
        }
      }
      depth(x, y) += offsets[best];
    }
}

ScoreThreshold score_threshold(CMatrix<float> const& scores) {
  const long n = static_cast<long>(scores.size());
  const float* s = scores.data;
  float sum = 0.0f;
  int count = 0;
#pragma omp parallel
  {
    float partial = 0.0f;
    int partial_count = 0;
#pragma omp for schedule(static)
    for (long p = 0; p < n; ++p)
      if (static_cast<double>(s[p]) > 0.67) {
        partial += s[p];
        ++partial_count;
      }
#pragma omp critical
    {
      sum += partial;
      count += partial_count;
    }
  }
  const float mean = sum / static_cast<float>(count);

  float deviation = 0.0f;
#pragma omp parallel
  {
    float partial = 0.0f;
#pragma omp for schedule(static)
    for (long p = 0; p < n; ++p)
      if (s[p] > 0.67f) {
        const float e = s[p] - mean;
        partial += e * e;
      }
#pragma omp critical
    deviation += partial;
  }
  const float sigma = std::sqrt(deviation / static_cast<float>(count));
  const float spread = mean - 2.0f * sigma;
  return {spread > 0.67 ? spread : 0.67f, mean, sigma};
}

void mask_untrusted(CMatrix<float>& depth, CMatrix<float> const& scores, float threshold) {
#pragma omp parallel for schedule(static)
  for (int y = 0; y < depth.ySize; ++y)
    for (int x = 0; x < depth.xSize; ++x)
      if (scores(x, y) < threshold) depth(x, y) = 0.0f;
}
