#pragma once

#include <vector>

#include "dasp/parameters.h"
#include "dasp/pixel_features.h"
#include "dasp/seeds.h"
#include "device/vector_types.h"

namespace dasp {

// Centre of one cluster during the local k-means.
struct ClusterCenter {
  float x;           // image position
  float y;
  float3 position;   // 3-D mean of the pixels with depth
  float3 normal;     // unit mean normal of the pixels with depth
  float3 color;      // mean RGB in 0..1
  float depth;       // mean depth of the pixels with depth; 0 if the cluster has none
};

// Initial centres, each taken from its seed pixel.
std::vector<ClusterCenter> centers_from_seeds(const PixelFeatures& f, const std::vector<Seed>& seeds);

// Local k-means: each round assigns every pixel to the best centre among those whose search
// window covers it, then moves the centres to the means and drops centres without pixels.
// Returns the label of each pixel (index into centers, -1 if no window reached it).
std::vector<int> cluster_pixels(const PixelFeatures& f, std::vector<ClusterCenter>& centers, float radius,
                                const Parameters& parameters);

}  // namespace dasp
