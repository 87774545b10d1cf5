#pragma once

#include "device/vector_types.h"
#include "ketra/array.h"

// The arrays one rendering writes, all device arrays of the same width W and height H. A plain
// record passed to kernels by value; it owns nothing, the owner frees each array by hand.
struct RenderBuffer {
  ketra::Array<uchar4, 2> image;      // (W, H) final colour image
  ketra::Array<float, 2> depth;       // (W, H) nearest camera-frame depth per pixel
  ketra::Array<float, 3> color_sum;   // (W, H, 4) weighted sums of red, green, blue, alpha (0..255 scale)
  ketra::Array<float, 3> normal_sum;  // (W, H, 3) weighted sums of the normal's x, y, z
  ketra::Array<float, 2> weight_sum;  // (W, H) sum of the splat weights
};

// The depth that means "no surface" in every rendered depth map: the largest finite float.
constexpr float empty_depth = 3.4028235e38f;

// Allocates the five arrays as pitched device arrays, in field order. Contents are undefined
// until the buffer is cleared.
RenderBuffer createRenderBuffer(int width, int height);

// Sets image to color and depth to depth, then zeroes color_sum, normal_sum and weight_sum
// byte-wise, in that order.
void clearRenderBuffer(RenderBuffer& rb, uchar4 color, float depth);

// The clear every rendering starts with: colour (0, 0, 0, 0) and empty depth.
void clearRenderBufferEmpty(RenderBuffer& rb);

// Frees the five arrays of a buffer made by createRenderBuffer.
void freeRenderBuffer(RenderBuffer& rb);
