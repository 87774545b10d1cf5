#pragma once

#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/render/projection.h"

// Plane-sweep matching costs of a reference view against one other view, added into a cost
// volume with extents (W, H, L, 2) on the device: plane 0 of the last axis sums the costs of all
// views added so far, plane 1 counts them, per pixel and label. The caller allocates and zeroes
// the volume; a cell that no view reached keeps sum 0 and count 0. Labels are uniform in inverse
// depth from depth_first (label 0) to depth_last (label L - 1).
//
// fx, fy and the mirrored principal point cx, cy are the reference camera's; P (row by row) maps
// reference camera coordinates to homogeneous pixel coordinates of the other view. Both images
// are W x H. The images are bound to the program-wide textures ref_img_tex and img_tex, so only
// one call may run at a time, and two calls must not overlap on one volume.

enum MatchingCostsMetric : int {
  SAD = 0,  // absolute RGB differences of single pixels, costs in [0, 3]
  NCC = 1,  // normalised cross-correlation over 7 x 7 windows, costs in [0, 1]
};

// Reprojects every window pixel at every label by itself. Does nothing for an unknown metric.
// Throws std::runtime_error when the images and the volume differ in size or the volume's last
// extent is not 2.
void add_matching_costs(ketra::Array<float, 4>& costs, ketra::Array<uchar4, 2> const& ref_img,
                        ketra::Array<uchar4, 2> const& img, float depth_first, float depth_last, float fx, float fy,
                        float cx, float cy, ProjectionMatrix P, MatchingCostsMetric metric);

// NCC always (metric is ignored), fast form: per label the other view is warped into the
// reference and window means come from a separable box filter. Prints the unused 7-tap
// smoothing table ("gaussian " and seven values) to standard output. At label 0, when the
// directory output_directory + "/debug/" exists, dumps the warped image, its window means and the
// cost sums of label 0 before this view's costs are added ("debug_image_warped.dat",
// "debug_image_warped_mean.dat", "debug_ncc.dat"). Throws as add_matching_costs.
void add_matching_costs2(ketra::Array<float, 4>& costs, ketra::Array<uchar4, 2> const& ref_img,
                         ketra::Array<uchar4, 2> const& img, float depth_first, float depth_last, float fx, float fy,
                         float cx, float cy, ProjectionMatrix P, MatchingCostsMetric metric);
