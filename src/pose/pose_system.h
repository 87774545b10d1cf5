#pragma once

#include "device/vector_types.h"
#include "ketra/array.h"
#include "src/pose/camera_estimation_kernels.h"
#include "src/render/projection.h"

// The per-pixel rows of the pose alignment's linear system, on device arrays of the level's
// size. delta carries the level's size and intrinsics and the current pose update (R, t); inv_fx,
// inv_fy, cx, cy are the level's, for back-projecting the rendered depth. See
// camera_estimation_kernels.h for the warp.

// Planes 0 to 2 of out get bytes 0 to 2 of in divided by 255; the fourth byte is dropped.
void convertToFloat(ketra::Array<float, 3>& out, ketra::Array<uchar4, 2> const& in);

// Planes 0 to 2 of out: the colour error of the real image at the warped point against the
// rendered image, or a NaN in plane 0 where the depth is empty, the point lands outside, or the
// error is longer than threshold. Binds real_image_tex to real.
void computeDifferenceImage(ketra::Array<float, 3>& out, ketra::Array<uchar4, 2> const& real,
                            ketra::Array<uchar4, 2> const& rendered, ketra::Array<float, 2> const& depth,
                            float threshold, Projection const& delta, float inv_fx, float inv_fy, float cx, float cy);

// The 18 Jacobian planes of out (parameter k, colour c in plane 3k + c) from the six gradient
// planes of the real image, read through a layered texture made for this call; a NaN in plane 0
// where the warp fails.
void computeGradientPsi(ketra::Array<float, 3>& out, ketra::Array<float, 3> const& gradients,
                        ketra::Array<float, 2> const& depth, Projection const& delta, float inv_fx, float inv_fy,
                        float cx, float cy);

// The depth term of the model alignment into the 7 planes of out (residual, then one derivative
// per parameter): see depth_residual_kernel. normal_sum holds the rendered camera-frame normals.
void computeDepthResidual(ketra::Array<float, 3>& out, ketra::Array<float, 2> const& depth,
                          ketra::Array<float, 3> const& normal_sum, MeasuredDepth const& measured,
                          Projection const& delta, float inv_fx, float inv_fy, float cx, float cy, float threshold,
                          float weight);

// Zeroes all planes of every pixel with a non-finite value in plane 0, 3, 6, ... and returns how
// many pixels that were. When validity has data it receives the colour of each pixel: green
// used, red rejected, black no surface.
unsigned int setNANtoZero(ketra::Array<float, 3>& system, ketra::Array<uchar4, 2> validity,
                          ketra::Array<float, 2>& depth);
