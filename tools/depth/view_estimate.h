#pragma once

#include <ostream>
#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "tools/depth/depth_arguments.h"
#include "tools/depth/depth_views.h"

namespace depth_tool {

// One view's result before it is written.
struct ViewDepth {
  std::vector<int> others;  // the views its depths are checked against; empty when it was not matched
  CMatrix<float> depth;
  CMatrix<unsigned char> agreeing;
  long matched = 0;  // pixels with a depth before the consistency check
};

// The range swept for a view: the option, or the view's input depths widened by 5 %. Throws
// ViewFileError when neither gives one.
void depth_range(const DepthOptions& o, const DepthView& v, float& near, float& far);

// Estimates the depth map of view i against its neighbours (matching, slanted windows, the plane
// search or the older steps), printing its progress line; `textures` holds every view's local
// texture.
ViewDepth estimate_view(const DepthOptions& o, const std::vector<DepthView>& views, const std::vector<Camera>& cameras,
                        const std::vector<CMatrix<float>>& textures, int i, std::ostream& out);

// A second plane search in every view, offered the depths that its search neighbours' maps give
// its pixels: a surface found in one view thus reaches the views that missed it.
void search_again(const DepthOptions& o, const std::vector<DepthView>& views, const std::vector<Camera>& cameras,
                  const std::vector<CMatrix<float>>& textures, std::vector<ViewDepth>& results, std::ostream& out);

}  // namespace depth_tool
