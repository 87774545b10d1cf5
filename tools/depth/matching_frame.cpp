#include "tools/depth/matching_frame.h"

#include "tools/depth/local_texture.h"

namespace depth_tool {

MatchingFrame matching_frame(const Camera& reference, const std::vector<const Camera*>& neighbours, float near,
                             float far) {
  MatchingFrame f;
  f.geometry = view_geometry(reference);
  f.grey = grey_of(reference.image);
  f.fine_texture = local_texture(reference.image, 1);
  f.pairs = window_pairs(f.geometry, neighbours);
  f.w_low = 1.0 / far, f.w_high = 1.0 / near;
  return f;
}

}  // namespace depth_tool
