#pragma once

#include "image/CMatrix.h"

namespace depth_tool {

struct JumpSettings {
  int radius = 3;      // pixels on the near side of a jump that are dropped
  float jump = 0.05f;  // a depth this share farther than the pixel's is another surface
};

// Drops every depth that has a markedly farther depth within `radius` pixels (a disc), and returns
// how many it dropped. A matching window that straddles the outline of a nearer surface takes that
// surface's depth for the background pixels it covers too, so the near surface grows past its
// outline by up to half a window; the depths right beside a jump, on its near side, are the ones
// most likely to be such guesses. Only the map's own depths are read, so a dropped depth never
// makes its neighbours drop in turn.
long drop_near_side_of_jumps(CMatrix<float>& depth, const JumpSettings& settings = {});

}  // namespace depth_tool
