#pragma once

#include "ketra/array.h"
#include "src/render/points.h"
#include "src/render/projection.h"
#include "src/render/render_buffer.h"

// A rendering for aligning a camera to a model: as render_points at radius scale 1, but the
// attribute pass takes every disk less than tolerance_scale radii behind the nearest depth, and
// rb.depth ends as the weighted mean depth of the disks taken instead of the nearest one. A model
// fused from slightly wrong poses is a layer a few disks thick; its nearest depth lies in front of
// the surface the layer stands for, its mean depth on it. depth_sum is a device array of rb's size
// that the rendering uses for the weighted depths.
void render_points_blended(RenderBuffer& rb, ketra::Array<float, 2>& depth_sum, Projection proj,
                           Points const& points, float tolerance_scale);
