#pragma once

#include <array>
#include <vector>

#include "dasp/parameters.h"
#include "dasp/slimage.h"
#include "device/vector_types.h"

namespace dasp {

// One superpixel: its pixels and the means over them.
struct Cluster {
  std::vector<unsigned> pixel_ids;  // pixel numbers y * width + x, ascending
  std::array<float, 3> color{};     // mean RGB of the pixels, each channel in 0..1
  float2 center{};                  // mean image position (x, y)
  float3 position{};                // mean 3-D point of the pixels with depth (0 if none)
  float3 normal{};                  // unit mean normal, facing the camera ((0, 0, -1) if no depth)
  float depth = 0.0f;               // mean world depth of the pixels with depth (0 if none)
  unsigned valid_count = 0;         // number of pixels with depth
};

// A partition of the image: every pixel belongs to exactly one cluster.
struct Superpixels {
  unsigned width = 0;
  unsigned height = 0;
  float radius = 0.0f;            // world radius the seeds were placed for
  std::vector<Cluster> clusters;  // in seed order, no empty clusters
  std::vector<int> labels;        // cluster index of each pixel
};

// Cuts the image into depth-adaptive superpixels of about equal world size: seeds follow the
// world area that pixels cover, then a local k-means in position, colour and normal refines them.
// Pixel (x, y) with depth z is the camera-frame point ((x - cx) z / f, (y - cy) z / f, z).
// Throws std::runtime_error if the two images differ in size or a parameter is out of range
// (focal length or depth scale not positive, negative weights, no count and no base radius).
Superpixels ComputeSuperpixels(const slimage::Image3ub& color, const slimage::Image1ui16& depth,
                               const Parameters& parameters);

}  // namespace dasp
