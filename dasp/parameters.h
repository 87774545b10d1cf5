#pragma once

namespace dasp {

// Settings of one superpixel computation. The default constructor gives usable values for a
// 640 x 480 depth image in millimetre steps.
//
// A pixel joins the cluster that minimises
//   weight_spatial * |point - centre|^2 / radius^2      (image distance in radii without depth)
// + weight_color   * |rgb - mean rgb|^2                 (channels in 0..1)
// + weight_normal  * (1 - dot(normal, mean normal))     (only where both have depth)
struct Parameters {
  Parameters();

  float principal_x;     // principal point, pixels
  float principal_y;
  float focal;           // focal length, pixels
  float depth_scale;     // world units per depth step
  float weight_spatial;  // first weight: compactness, distance to the cluster centre
  float weight_color;    // second weight: colour difference to the cluster's mean colour
  float weight_normal;   // third weight: angle between pixel normal and the cluster's mean normal
  unsigned iterations;   // local k-means rounds (at least one is always made)
  float base_radius;     // world radius of a superpixel, used when count is 0
  unsigned count;        // wanted number of superpixels over the pixels with depth; 0: use base_radius
};

}  // namespace dasp
