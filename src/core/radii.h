#pragma once

// Radius in pixels of a disc with the area of one of `count` superpixels of a width x height
// image.
float superpixel_radius(int width, int height, int count);

// World size of k pixels at the average depth of a camera with focal length fx.
float pixel_radius(float k, float avg_depth, float fx);
