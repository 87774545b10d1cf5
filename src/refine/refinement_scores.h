#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "image/CTensor.h"

// The host side of depth-map refinement: the depth offsets it tries, the per-offset sums of NCC
// values over the neighbours, the choice of the best offset per pixel and the threshold that
// decides which pixels are trusted.

// The offsets along the viewing ray, from s = radius / 8: 0, 2s, -2s, 4s, 4s, 8s, -8s. 4s stands
// twice and -4s not at all; a pixel without a usable score takes the last entry, -radius.
std::vector<float> refinement_offsets(float radius);

// Adds every finite value of ncc to the sum (x) of accumulator plane k and 1 to its count (y).
// ncc has the accumulator's width and height.
void accumulate_ncc(CTensor<float2>& accumulator, CMatrix<float> const& ncc, int k);

// Per pixel, the score 1 - acos(mean NCC) / pi of every offset that at least 3 neighbours scored;
// the best one, strictly above the score already in scores (0 when it starts), goes into scores
// and its offset is added to depth. A tie keeps the earlier offset, and a pixel with no score
// above its start takes the last offset.
void choose_offsets(CMatrix<float>& depth, CMatrix<float>& scores, CTensor<float2> const& accumulator,
                    std::vector<float> const& offsets);

struct ScoreThreshold {
  float threshold;
  float mean;   // of the scores above 0.67; NaN when there are none
  float sigma;  // their standard deviation about the mean
};

// Trusted scores lie at or above mean - 2 sigma of the scores above 0.67, and never below 0.67.
ScoreThreshold score_threshold(CMatrix<float> const& scores);

// Sets depth to 0 where the score lies below the threshold.
void mask_untrusted(CMatrix<float>& depth, CMatrix<float> const& scores, float threshold);
