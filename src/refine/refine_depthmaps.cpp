#include "src/refine/refine_depthmaps.h"

#include <cstddef>
#include <iostream>
#include <stdexcept>
#include <string>

#include "device/vector_math.h"
#include "ketra/tools.h"
#include "src/refine/ncc.h"
#include "src/refine/refinement_scores.h"
#include "src/render/device_arrays.h"
#include "src/render/matrix4.h"
#include "src/render/projection.h"
#include "src/render/render_depthmap.h"

namespace {

template <class T>
ketra::Array<T, 2> upload(CMatrix<T> const& m) {
  ketra::Array<T, 2> d = allocate_pitched<T, 2>(m.xSize, m.ySize, 1);
  ketra::arrayCopy(d, ketra::arrayFromHostMemory(m.data, m.xSize, m.ySize));
  return d;
}

// The optical axis: the third row of the world-to-camera rotation, which Camera keeps by columns.
float3 optical_axis(Camera const& c) { return make_float3(c.R[2], c.R[5], c.R[8]); }

// The projection from view i's camera frame into view j, at view i's size with view j's
// intrinsics, without a depth window.
// A view file can hold a singular rotation, whose inverse would be garbage.
Projection relative_to_neighbour(Camera const& i, Camera const& j, std::size_t view) {
  Matrix4 inverse_i;
  if (!invert(pose_matrix(i), inverse_i))
    throw std::runtime_error("refine_depthmaps: the pose of view " + std::to_string(view) + " cannot be inverted");
  const Matrix4 relative = multiply(pose_matrix(j), inverse_i);
  Projection p;
  p.width = i.width;
  p.height = i.height;
  p.fx = j.K[0];
  p.fy = j.K[4];
  p.cx = j.K[6];
  p.cy = j.K[7];
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) p.R[3 * r + c] = relative.m[4 * r + c];
    p.t[r] = relative.m[4 * r + 3];
  }
  p.near = 0.0f;
  p.far = 3.4028235e38f;
  return p;
}

// The device arrays of the view in work: its image and depth, the warped neighbour and the score.
struct ViewArrays {
  ketra::Array<uchar4, 2> image, warped;
  ketra::Array<float, 2> depth, result;
};

// Scores every offset of view i against neighbour j and adds the scores to the accumulator.
void score_neighbour(CTensor<float2>& accumulator, ViewArrays& view, Camera const& ci, std::size_t i, Camera const& cj,
                     CMatrix<float> const& depth_j, std::vector<float> const& offsets, float radius) {
  ketra::Array<uchar4, 2> image_j = upload(cj.image);
  ketra::Array<float, 2> target_depth = upload(depth_j);
  const Projection relative = relative_to_neighbour(ci, cj, i);
  CMatrix<float> scores(ci.width, ci.height);
  ketra::Array<float, 2> host_scores = ketra::arrayFromHostMemory(scores.data, ci.width, ci.height);
  for (std::size_t k = 0; k < offsets.size(); ++k) {
    project_texture_on_depthmap(view.warped, 1.0f / ci.K[0], 1.0f / ci.K[4], ci.K[6], ci.K[7], relative, view.depth,
                                target_depth, image_j, 0.5f * radius, offsets[k]);
    // The depth window is centred on the unshifted depth.
    ncc(view.result, view.image, view.warped, view.depth, radius, 3);
    ketra::arrayCopy(host_scores, view.result);
    accumulate_ncc(accumulator, scores, static_cast<int>(k));
  }
  ketra::freeArray(image_j);
  ketra::freeArray(target_depth);
}

void check_inputs(std::vector<CMatrix<float>> const& rendered_depthmaps, std::vector<Camera*> const& camera_ptrs) {
  for (std::size_t i = 0; i < camera_ptrs.size(); ++i) {
    Camera const& c = *camera_ptrs[i];
    CMatrix<float> const& d = rendered_depthmaps[i];
    if (d.xSize != c.image.xSize || d.ySize != c.image.ySize)
      throw std::runtime_error("refine_depthmaps: the depth map of view " + std::to_string(i) + " (" +
                               std::to_string(d.xSize) + ", " + std::to_string(d.ySize) +
                               ") differs in size from its image (" + std::to_string(c.image.xSize) + ", " +
                               std::to_string(c.image.ySize) + ")");
  }
}

}  // namespace

void refine_depthmaps(std::vector<CMatrix<float>>& improved_depthmaps, std::vector<CMatrix<float>>& particle_depthmaps,
                      std::vector<CMatrix<float>> const& rendered_depthmaps, std::vector<Camera*> const& camera_ptrs,
                      float radius) {
  if (rendered_depthmaps.size() != camera_ptrs.size())
    throw std::runtime_error("refine_depthmaps: " + std::to_string(rendered_depthmaps.size()) +
                             " depth maps for " + std::to_string(camera_ptrs.size()) + " views");
  const std::vector<float> offsets = refinement_offsets(radius);
  for (Camera* c : camera_ptrs) c->loadImage();
  check_inputs(rendered_depthmaps, camera_ptrs);
  improved_depthmaps.clear();
  particle_depthmaps.clear();

  for (std::size_t i = 0; i < camera_ptrs.size(); ++i) {
    Camera const& ci = *camera_ptrs[i];
    std::cout << "\n Improving depth values for camera " << i << "  " << std::flush;
    CTensor<float2> accumulator(ci.width, ci.height, static_cast<int>(offsets.size()));
    ViewArrays view{upload(ci.image), allocate_pitched<uchar4, 2>(ci.width, ci.height, 1),
                    upload(rendered_depthmaps[i]), allocate_pitched<float, 2>(ci.width, ci.height, 1)};
    for (std::size_t j = 0; j < camera_ptrs.size(); ++j) {
      if (j == i || dot(optical_axis(ci), optical_axis(*camera_ptrs[j])) < 0.5) continue;
      std::cout << "." << std::flush;
      score_neighbour(accumulator, view, ci, i, *camera_ptrs[j], rendered_depthmaps[j], offsets, radius);
    }
    ketra::freeArray(view.image);
    ketra::freeArray(view.warped);
    ketra::freeArray(view.depth);
    ketra::freeArray(view.result);

    CMatrix<float> improved = rendered_depthmaps[i];
    CMatrix<float> scores(ci.width, ci.height);
    choose_offsets(improved, scores, accumulator, offsets);
    particle_depthmaps.push_back(rendered_depthmaps[i]);
    const ScoreThreshold t = score_threshold(scores);
    std::cout << " threshold " << t.threshold << "  mean " << t.mean << "  sigma " << t.sigma << std::endl;
    mask_untrusted(particle_depthmaps.back(), scores, t.threshold);
    improved_depthmaps.push_back(std::move(improved));
  }
}
