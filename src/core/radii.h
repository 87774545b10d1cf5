#pragma once

// Radius in pixels of a disc with the area of one of `count` superpixels of a width x height
// image.
float superpixel_radius(int width, int height, int count);

// World size of k pixels at the average depth of a camera with focal length fx.
float pixel_radius(float k, float avg_depth, float fx);

// The radii of a run in world units: k pixels at the average depth, with fx of the first view.
struct RunRadii {
  float superpixel_filter = 0.0f;  // 9 superpixel radii: smoothing radius of the superpixel-level filter
  float superpixel = 0.0f;         // one superpixel radius: cell size of its support filter
  float pixel_filter = 0.0f;       // 5 pixels: smoothing radius of the fine filter
  float pixel = 0.0f;              // one pixel: fine support filters, back-face tolerance
};

// The radii for a superpixel radius of `superpixel_radius` pixels.
RunRadii run_radii(float average_depth, float fx, float superpixel_radius);
