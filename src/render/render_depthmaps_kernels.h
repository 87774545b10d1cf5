#pragma once

#include "device/launch.h"
#include "device/texture.h"
#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/render/points.h"
#include "src/render/projection.h"
#include "src/render/render_buffer.h"

// Device code of the point renderer. A kernel is called with its launch shape first, as a
// launch names grid and block: it runs its per-element body over every thread of that shape and
// leaves any launch error for the caller's _CHECK_CUDA_ERROR.
//
// Every point-wise pass rasterises one oriented disk per element by the same procedure: move
// the point into the camera frame, cull it by orientation and depth window, take the box of the
// disk's head-on circle, and intersect the ray of each pixel of the box with the disk's plane.
// The passes differ in the cull test and in what they do at a pixel the disk covers.
namespace render_depthmaps_kernels {

struct LaunchShape {
  device::Dim3 grid;
  device::Dim3 block;
};

// Point passes. The element of a thread is (block index + block_offset) * block width + thread
// index; elements beyond the point count return at once.

// Nearest depth: atomic minimum of the ray depth into rb.depth. Culls disks facing away from
// the ray to their centre.
void visibility_pass_kernel(LaunchShape shape, RenderBuffer rb, Projection proj, Points points, float radius_scale,
                            int block_offset);
// Weighted colour, camera-frame normal and weight sums of every disk less than its radius
// behind rb.depth. Culls disks whose normal points away from the camera axis.
void attribute_pass_kernel(LaunchShape shape, RenderBuffer rb, Projection proj, Points points, float radius_scale,
                           int block_offset);
// As the attribute pass, but adds only the weighted world normal to rb.normal_sum.
void normal_pass_kernel(LaunchShape shape, RenderBuffer rb, Projection proj, Points points, float radius_scale,
                        int block_offset);
// flags[i] = 1 when disk i reaches the surface in rb.depth at some pixel, 0 when it reaches none;
// a culled disk or one with an empty box writes nothing.
void contribution_pass_kernel(LaunchShape shape, ketra::Array<int, 1> flags, RenderBuffer rb, Projection proj,
                              Points points, float radius_scale, int block_offset);
// Atomic minimum of values[i] + radius into min_distance at every pixel where disk i reaches the
// surface in rb.depth. Culls as the visibility pass.
void min_camdistance_pass_kernel(LaunchShape shape, ketra::Array<float, 2> min_distance,
                                 ketra::Array<float, 1> values, RenderBuffer rb, Projection proj, Points points,
                                 float radius_scale, int block_offset);

// Pixel passes over rb.depth's extents; pixels with zero weight keep their clear colour.
// Colour sums over the weight into rb.image.
void shading_pass_kernel(LaunchShape shape, RenderBuffer rb);
// The direction of rb.normal_sum encoded as a colour, for visual debugging.
void shading_pass_normal_kernel(LaunchShape shape, RenderBuffer rb);

// Depth-map passes: one element per pixel of the source depth, a disk facing the source camera
// of 0.6 * sqrt(2) pixel sizes (times spacing) at that depth. inv_fx, inv_fy, cx, cy are the
// source camera's; `relative` maps source camera coordinates into the target.
void visibility_pass_kernel(LaunchShape shape, RenderBuffer rb, float inv_fx, float inv_fy, float cx, float cy,
                            Projection relative, ketra::Array<float, 2> depth, float spacing);
void attribute_pass_kernel(LaunchShape shape, RenderBuffer rb, float inv_fx, float inv_fy, float cx, float cy,
                           Projection relative, ketra::Array<float, 2> depth, ketra::Array<uchar4, 2> image,
                           float spacing);

// Paints the target view (tex_image, tex_depth) over the source depth map: each pixel of out
// whose point lands inside the target gets the target's colour with alpha 255, or (0, 200, 0, 0)
// when the target sees something nearer; other pixels are left as they are.
void project_texture_kernel(LaunchShape shape, ketra::Array<uchar4, 2> out, float inv_fx, float inv_fy, float cx,
                            float cy, Projection relative, ketra::Array<float, 2> depth, float tolerance,
                            float offset);

}  // namespace render_depthmaps_kernels

// The program-wide textures of project_texture_kernel: the target image (channels as floats in
// 0..1) and the target depth. Bound by project_texture_on_depthmap.
extern device::Texture<uchar4, device::ReadMode::NormalizedFloat> tex_image;
extern device::Texture<float> tex_depth;
