#pragma once

#include "src/core/camera.h"
#include "src/render/points.h"
#include "src/render/projection.h"
#include "src/render/render_buffer.h"

// The depth tolerance every caller hands the renderer; no pass reads it.
constexpr float rendering_depth_tolerance = 0.02f;

// Splats the points as oriented disks into rb: clears it, writes the nearest depth per pixel,
// then sums weighted colours and normals of every disk less than its radius behind that depth,
// and divides colours by weights into rb.image. Disk radii are scaled by radius_scale. Timed
// under "rendering", "visibility", "attributes" and "shading". `ignored` has no effect.
void render_points(RenderBuffer& rb, Projection proj, Points const& points, float ignored, float radius_scale);

// The same through the camera's projection, scaled to rb.image's size, with the depth window
// (near, far).
void render_points(RenderBuffer& rb, Points const& points, Camera const& camera, float ignored, float near, float far,
                   float radius_scale);

// Replaces rb.image by the direction of rb.normal_sum (the camera-frame normals an attribute pass
// summed) encoded as a colour, where the weight is not zero, for looking at the shape of a model.
void shade_normals(RenderBuffer& rb);
