#pragma once

#include "device/texture.h"
#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/render/projection.h"
#include "src/render/render_depthmaps_kernels.h"

// Device code of the pose alignment. One element per pixel of the level; a kernel is called with
// its launch shape first and leaves any launch error for the caller's _CHECK_CUDA_ERROR.
//
// The warp shared by the residual and the Jacobian: the rendered depth d at array pixel (x, y)
// is back-projected through the mirrored image plane, p = (((W-1-x) - cx) inv_fx d,
// ((H-1-y) - cy) inv_fy d, d), moved by `delta` (c = R p + t), projected to (u, v) with delta's
// intrinsics, and the real image is read at the mirrored point (width-1-u, height-1-v). A pixel
// with empty depth or a projection outside the level gets a NaN in the first plane it writes.
// A view's own measured depth map at its full size, with that size's intrinsics (cx, cy as the
// camera keeps them), for the depth term of the model alignment.
struct MeasuredDepth {
  ketra::Array<float, 2> depth;
  float fx, fy, cx, cy;
};

namespace camera_estimation_kernels {

using render_depthmaps_kernels::LaunchShape;

// Planes 0 to 2 of out: bytes 0 to 2 of in divided by 255.
void convert_to_float_kernel(LaunchShape shape, ketra::Array<float, 3> out, ketra::Array<uchar4, 2> in);

// Planes 0 to 2 of out: the real image (real_image_tex) at the warped point minus the rendered
// colour, or a NaN in plane 0 when the pixel has no warp or the colour error's length exceeds
// threshold.
void difference_image_kernel(LaunchShape shape, ketra::Array<float, 3> out, ketra::Array<uchar4, 2> rendered,
                             ketra::Array<float, 2> depth, float threshold, Projection delta, float inv_fx,
                             float inv_fy, float cx, float cy);

// Planes 3k + c of out (18 planes): the derivative of colour c of the warped real image with
// respect to parameter k (rotations about x, y, z applied before delta's R, then translations),
// from the image gradients in image_gradient_tex (layers 0 to 2 along x, 3 to 5 along y).
void gradient_psi_kernel(LaunchShape shape, ketra::Array<float, 3> out, ketra::Array<float, 2> depth,
                         Projection delta, float inv_fx, float inv_fy, float cx, float cy);

// The depth term, one row per pixel: plane 0 the distance of the warped model point from the
// plane through the measured point on its ray (the model's normal, turned by delta's R), planes 1
// to 6 its derivatives with respect to the six parameters, all in pixel footprints at the measured
// depth and times weight. A NaN in plane 0 where the warp fails, the model has no normal, the
// measured depth around the point is missing or broken by more than threshold footprints, or the
// distance exceeds threshold footprints.
void depth_residual_kernel(LaunchShape shape, ketra::Array<float, 3> out, ketra::Array<float, 2> depth,
                           ketra::Array<float, 3> normal_sum, MeasuredDepth measured, Projection delta, float inv_fx,
                           float inv_fy, float cx, float cy, float threshold, float weight);

// Zeroes every plane of a pixel whose plane 0, 3, 6, ... is not finite and counts the pixel in
// d_invalid_pixel_count. When validity has data it gets (0, 200, 0, 1) for a used pixel,
// (200, 0, 0, 1) for a rejected one and (0, 0, 0, 1) for one with empty depth.
void set_nan_to_zero_kernel(LaunchShape shape, ketra::Array<float, 3> system, ketra::Array<uchar4, 2> validity,
                            ketra::Array<float, 2> depth);

}  // namespace camera_estimation_kernels

// The program-wide textures of the pose kernels: the real image of the level (channels as floats
// in 0..1) and its six gradient planes as layers, both read bilinearly with clamped addresses.
extern device::Texture<uchar4, device::ReadMode::NormalizedFloat> real_image_tex;
extern device::Texture<float> image_gradient_tex;

// The number of pixels set_nan_to_zero_kernel rejected; the only atomic of the pose kernels.
extern unsigned int d_invalid_pixel_count;
