#pragma once

#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/core/camera.h"
#include "src/render/projection.h"
#include "src/render/render_buffer.h"

// Forward warp of a depth map with its image into another view: every source pixel becomes a
// disk facing the source camera, 0.6 * sqrt(2) pixel sizes (times spacing) in radius, and goes
// through the visibility, attribute and shading passes. inv_fx, inv_fy, cx, cy are the source
// camera's; relative maps source camera coordinates into the target and carries the target's
// intrinsics and size. Timed like render_points.
void render_depthmap(RenderBuffer& rb, float inv_fx, float inv_fy, float cx, float cy, Projection relative,
                     ketra::Array<float, 2> const& depth, ketra::Array<uchar4, 2> const& image, float spacing);

// The same between two cameras: relative = target pose times the inverse of the source pose,
// the target's intrinsics scaled to rb.image's size, the depth window (near, far).
void render_depthmap(RenderBuffer& rb, ketra::Array<float, 2> const& depth, ketra::Array<uchar4, 2> const& image,
                     Camera const& source, Camera const& target, float near, float far, float spacing);

// The projection from the source camera's frame into the target camera at width x height.
// Throws std::runtime_error when the source pose cannot be inverted.
Projection relative_projection(Camera const& source, Camera const& target, int width, int height, float near,
                               float far);

// Backward warp: each pixel of out whose source point (depth + offset) lands strictly inside
// the target gets the target image there, alpha 255, or (0, 200, 0, 0) when the target's depth
// (plus offset) lies more than tolerance in front of it. Other pixels are (0, 0, 0, 0). Binds
// the program-wide textures, so it must not run concurrently with itself.
void project_texture_on_depthmap(ketra::Array<uchar4, 2>& out, float inv_fx, float inv_fy, float cx, float cy,
                                 Projection relative, ketra::Array<float, 2> const& depth,
                                 ketra::Array<float, 2> const& target_depth,
                                 ketra::Array<uchar4, 2> const& target_image, float tolerance, float offset);
