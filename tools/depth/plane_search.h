#pragma once

#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "tools/depth/dominant_planes.h"

namespace depth_tool {

struct PlaneSearchSettings {
  int radius = 4;            // window of (2 radius + 1)^2 pixels
  int stride = 2;            // of which every stride-th in each direction is compared
  int passes = 3;            // each pass visits one half of a checkerboard, then the other
  std::vector<int> reaches = {1, 3, 7, 15};  // planes come from the pixels this far away (odd)
  float min_texture = 3.0f;  // local spread (grey levels) a pixel without a depth needs to be searched
  float min_fine_texture = 1.5f;  // and the same over its own 3 x 3 pixels
  double widest_window = 0.05;  // a pixel with neither is matched on a wider window, up to this radius
  double widened_reach = 0.1;   // and enclosed by the scene plane's pixels this far (shares of the width)
  double min_score = 0.5;    // score a pixel's best plane needs to keep its depth
  bool robust = true;        // score by the better half of the neighbours instead of all of them
  DominantPlaneSettings scene_planes;  // offered to every pixel in every pass
  float near = 0, far = 0;   // depths stay inside the range swept
  float label_step = 0;      // one label step in inverse depth: the scale of the random changes
};

struct PlaneSearchStatistics {
  long searched = 0;  // pixels that held a plane
  long kept = 0;      // of them, those whose best plane reached min_score
  long added = 0;     // of those, pixels that had no depth before
};

// Every pixel keeps its own inverse-depth plane w = a + b dx + c dy and the score of its slanted
// window on it: a pixel with a depth starts from that depth on the plane fitted around it, a pixel
// without one whose surroundings and own 3 x 3 pixels hold texture from a random depth facing the
// camera. One whose surroundings hold texture but not its own 3 x 3 pixels is offered only the
// scene planes, and only where pixels holding them enclose it; so is one whose surroundings hold
// none either, on the narrowest widened window that reaches texture, where pixels holding the
// plane enclose it within widened_reach and most well-matched pixels under its window hold it.
// Each pass visits the pixels of one colour of a checkerboard, then the other, offering each the
// planes of the pixels `reaches` away in the four directions (all of the other colour, so that a
// half-pass reads no plane it writes), the scene planes that most well-matched pixels share as the
// pass begins, in the first pass the depths of `offered` on its own slant, one random depth on its
// own slant and two small random changes of its own plane; it keeps the best. A plane's score is
// one less the mean window cost (1 - normalised cross-correlation) over the better half of the
// neighbours that see the window, so that a neighbour that does not see the point (occluded, or
// the surface turned away from it) does not sink a right plane. At the end a pixel keeps the depth
// of its plane where the score reaches min_score and the depth lies more than a label step inside
// the range, and no depth otherwise. Pixels near the image border or with a flat window are left
// as they are.
PlaneSearchStatistics search_planes(CMatrix<float>& depth, const Camera& reference,
                                    const std::vector<const Camera*>& neighbours, const CMatrix<float>& texture,
                                    const PlaneSearchSettings& settings,
                                    const std::vector<CMatrix<float>>& offered = {});

}  // namespace depth_tool
