#pragma once

#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "ketra/array.h"
#include "src/core/camera.h"
#include "src/render/points.h"
#include "src/render/projection.h"
#include "src/render/render_buffer.h"

// Uses of the splatting passes that end in per-pixel or per-point numbers instead of a picture.
// `ignored` has no effect anywhere.

// Nearest depth per pixel (empty_depth where nothing was seen) and the unnormalised sum of the
// weighted world normals of the disks less than their radius behind it. depth (W, H) and normals
// (W, H, 3) are device arrays of proj's size.
void _compute_depthmap_and_normals_from_points(ketra::Array<float, 2>& depth, ketra::Array<float, 3>& normals,
                                               Projection proj, Points const& points, float ignored,
                                               float radius_scale);

// The depth map and unit normal map of the points seen from the camera at its own size. A pixel
// with no normal sum gets the unit vector towards the camera centre from its ray's point at depth 1.
void compute_depthmap_and_normals_from_points(CMatrix<float>& depth, CMatrix<float3>& normals, Points const& points,
                                              Camera const& camera, float ignored, float near, float far,
                                              float radius_scale);

// The output normal of pixel (x, y) for the normal sum m: m / |m| when |m| > 1e-6, else the
// direction towards the camera centre. inv_fx, inv_fy are 1 / K[0], 1 / K[4] of the camera.
float3 unit_normal_or_towards_camera(float3 m, int x, int y, Camera const& camera, float inv_fx, float inv_fy);

// A device flag per point: 1 when its disk reaches the nearest surface (lies less than its radius
// behind rb.depth) at some pixel, else 0. rb is cleared and holds the depth afterwards. The
// caller owns and frees the flags.
ketra::Array<int, 1> contributing_points(RenderBuffer& rb, Projection proj, Points const& points, float ignored,
                                         float radius_scale);
// The same through the camera's projection at rb.image's size, as a host vector.
std::vector<int> contributing_points(RenderBuffer& rb, Points const& points, Camera const& camera, float ignored,
                                     float near, float far, float radius_scale);

// Per pixel of proj's size, the smallest values[i] + radius_i over the points that reach the
// visible surface there; empty_depth where there is none. min_distance is a device array of
// proj's size.
void compute_min_camdistance(ketra::Array<float, 2>& min_distance, Projection proj, Points const& points,
                             ketra::Array<float, 1> const& values, float ignored, float radius_scale);
