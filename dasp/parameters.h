#pragma once

namespace dasp {

// Settings of one superpixel computation. The default constructor gives usable values for a depth
// image in millimetre steps whose scene lies about one world unit away.
struct Parameters {
  Parameters();

  float principal_x;        // principal point, pixels
  float principal_y;
  float focal;              // focal length, pixels
  float depth_scale;        // world units per depth step
  float weight_spatial;     // weighs distance to the cluster centre (3-D, relative to the radius)
  float weight_color;       // weighs squared RGB difference to the cluster's mean colour (0..1 scale)
  float weight_normal;      // weighs 1 - cos of the angle between pixel and cluster normals
  unsigned iterations;      // local k-means rounds
  float base_radius;        // world radius of a superpixel when no count is requested
  unsigned count;           // wanted number of superpixels; 0 means: use base_radius
};

}  // namespace dasp
