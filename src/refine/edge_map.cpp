#include "src/refine/edge_map.h"

#include <stdexcept>

#include "ketra/check_error.h"
#include "ketra/tools.h"
#include "src/refine/depthmap_estimation_kernels.h"
#include "src/render/point_batches.h"

using namespace depthmap_estimation_kernels;

void compute_edge_map(ketra::Array<float, 2>& edges, ketra::Array<uchar4, 2> const& image) {
  if (edges.extents.x != image.extents.x || edges.extents.y != image.extents.y)
    throw std::runtime_error("compute_edge_map: edges " + ketra::internal::str_extents(edges.extents) +
                             " and image " + ketra::internal::str_extents(image.extents) + " differ in size");
  const LaunchShape shape = render_launch::pixel_shape(image.extents.x, image.extents.y);
  compute_edge_map_kernel_x(shape, edges, image);
  compute_edge_map_kernel_y(shape, edges, image);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

void compute_P2_costs(ketra::Array<float, 2>& map, float P2_min, float decay, float exponent, float P2_max) {
  compute_P2_costs_kernel(render_launch::pixel_shape(map.extents.x, map.extents.y), map, P2_min, decay, exponent,
                          P2_max);
}
