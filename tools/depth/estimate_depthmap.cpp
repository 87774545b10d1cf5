#include "tools/depth/estimate_depthmap.h"

#include <chrono>
#include <cmath>

#include "ketra/algorithms/basic.h"
#include "ketra/tools.h"
#include "src/refine/edge_map.h"
#include "src/render/device_arrays.h"
#include "src/stereo/labels_to_depth.h"
#include "src/stereo/matching_costs.h"
#include "src/stereo/matching_projection.h"
#include "src/stereo/sgm.h"
#include "tools/depth/seconds_since.h"

namespace depth_tool {
namespace {

// How fast the larger penalty falls with the colour change to the right and lower neighbours
// (sum of two RGB distances in 0..1 per channel): by a factor e at a change of 1 / decay.
constexpr float kEdgeDecay = 8.0f, kEdgeExponent = 1.0f;

ketra::Array<uchar4, 2> upload(const CMatrix<uchar4>& image) {
  ketra::Array<uchar4, 2> d = allocate_pitched<uchar4, 2>(image.xSize, image.ySize, 1);
  ketra::arrayCopy(d, ketra::arrayFromHostMemory(const_cast<uchar4*>(image.data), image.xSize, image.ySize));
  return d;
}

// A packed host copy of a 3-D device array.
std::vector<float> download(ketra::Array<float, 3> const& a) {
  std::vector<float> host(static_cast<std::size_t>(a.extents.x) * a.extents.y * a.extents.z);
  ketra::Array<float, 3> h = ketra::arrayFromHostMemory(host.data(), a.extents);
  ketra::arrayCopy(h, a);
  return host;
}

// Adds the costs of every neighbour into the zeroed volume.
void add_neighbours(ketra::Array<float, 4>& costs, ketra::Array<uchar4, 2> const& ref_image, const Camera& reference,
                    const std::vector<const Camera*>& neighbours, float near, float far, Costs kind) {
  for (const Camera* n : neighbours) {
    ketra::Array<uchar4, 2> image = upload(n->image);
    const ProjectionMatrix P = matching_projection(reference, *n);
    const float fx = reference.K[0], fy = reference.K[4], cx = reference.K[6], cy = reference.K[7];
    if (kind == Costs::ncc)
      add_matching_costs2(costs, ref_image, image, near, far, fx, fy, cx, cy, P, NCC);
    else
      add_matching_costs(costs, ref_image, image, near, far, fx, fy, cx, cy, P, kind == Costs::sad ? SAD : NCC);
    ketra::freeArray(image);
  }
}

}  // namespace

DepthEstimate estimate_depthmap(const Camera& reference, const std::vector<const Camera*>& neighbours, float near,
                                float far, const CMatrix<float>& texture, const DepthOptions& options) {
  const unsigned int W = reference.width, H = reference.height, L = options.labels;
  DepthEstimate result;
  auto start = std::chrono::steady_clock::now();
  ketra::Array<uchar4, 2> ref_image = upload(reference.image);
  ketra::Array<float, 4> costs = ketra::mallocDeviceArray<float>(make_uint4(W, H, L, 2), ketra::Pitched);
  ketra::set(costs, 0.0f);
  add_neighbours(costs, ref_image, reference, neighbours, near, far, options.costs);
  // Mean cost per cell: the sum over the count, not-a-number where no view reached the cell.
  ketra::Array<float, 3> sums = ketra::subvolume(costs, 0), counts = ketra::subvolume(costs, 1);
  const std::vector<float> host_counts = download(counts);
  ketra::div(sums, counts);
  result.cost_seconds = seconds_since(start);

  start = std::chrono::steady_clock::now();
  ketra::Array<float, 2> penalties = allocate_pitched<float, 2>(W, H, 1);
  compute_edge_map(penalties, ref_image);
  compute_P2_costs(penalties, options.P2_edge, kEdgeDecay, kEdgeExponent, options.P2);
  ketra::Array<float, 2> labels = allocate_pitched<float, 2>(W, H, 1);
  ketra::Array<float, 3> minima = allocate_pitched<float, 3>(W, H, 2);
  sgm(labels, sums, options.P1, options.P2, penalties, options.paths, true, minima);
  result.sgm_seconds = seconds_since(start);
  const std::size_t plane = static_cast<std::size_t>(W) * H;
  std::vector<float> host_labels(plane);
  ketra::Array<float, 2> host_label_array = ketra::arrayFromHostMemory(host_labels.data(), W, H);
  ketra::arrayCopy(host_label_array, labels);

  std::vector<float> host_minima(2 * plane);
  ketra::Array<float, 3> host_minima_array = ketra::arrayFromHostMemory(host_minima.data(), W, H, 2);
  ketra::arrayCopy(host_minima_array, minima);

  // No depth where the best label has no view's cost or lies at an end of the range, where the
  // image has too little texture to match, or where another depth is nearly as good.
  std::vector<bool> valid(plane);
  for (std::size_t p = 0; p < plane; ++p) {
    const float l = host_labels[p];
    const long nearest = std::lround(std::fmin(std::fmax(l, 0.0f), static_cast<float>(L - 1)));
    valid[p] = l > 0.0f && l < static_cast<float>(L - 1) && host_counts[nearest * plane + p] > 0.0f;
    if (!valid[p]) continue;
    if (texture.data[p] < options.min_texture) {
      valid[p] = false, ++result.weak;
    } else if (host_minima[p] > options.max_ambiguity * host_minima[plane + p]) {
      valid[p] = false, ++result.ambiguous;
    }
  }
  convert_labels_to_depth(labels, static_cast<int>(L), near, far);
  result.depth.setSize(static_cast<int>(W), static_cast<int>(H));
  ketra::Array<float, 2> host_depth = ketra::arrayFromHostMemory(result.depth.data, W, H);
  ketra::arrayCopy(host_depth, labels);
  for (std::size_t p = 0; p < plane; ++p)
    if (!valid[p]) result.depth.data[p] = 0.0f;
  ketra::arrayCopy(labels, host_depth);
  median3x3(penalties, labels);
  ketra::arrayCopy(host_depth, penalties);
  for (std::size_t p = 0; p < plane; ++p) {
    if (!valid[p]) result.depth.data[p] = 0.0f;
    result.pixels_with_depth += result.depth.data[p] > 0.0f;
  }

  ketra::freeArray(ref_image);
  ketra::freeArray(costs);
  ketra::freeArray(penalties);
  ketra::freeArray(labels);
  ketra::freeArray(minima);
  return result;
}

}  // namespace depth_tool
