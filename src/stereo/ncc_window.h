#pragma once

#include <cstddef>

#include "device/host_device.h"

namespace depthmap_estimation_kernels {

// The three sums of a normalised cross-correlation over a window, accumulated position by
// position in window order (rows first): a.b, a.a and b.b of the RGB differences a (other view
// minus its mean) and b (reference minus its mean), each dot product summed over R, G, B in order.
struct NccSums {
  float ab = 0.0f, aa = 0.0f, bb = 0.0f;
  HOST_DEVICE void add(float a0, float a1, float a2, float b0, float b1, float b2) {
    ab += a0 * b0 + a1 * b1 + a2 * b2;
    aa += a0 * a0 + a1 * a1 + a2 * a2;
    bb += b0 * b0 + b1 * b1 + b2 * b2;
  }
};

// A block of 4 rows by 32 pixels of the 7 x 7 window kernels, staged as a GPU block stages it in
// shared memory: the warped and the reference colours (RGB planes in 0..1) of the block and its
// halo of 3 pixels, and the window means of the block's pixels. Column j of a staged row is
// image column x0 - 3 + j, row i is image row y0 - 3 + i.
struct NccTile {
  static constexpr int rows = 4, cols = 32, halo = 3;
  static constexpr int staged_rows = rows + 2 * halo, stride = 40;
  float warped[3][staged_rows][stride];
  float reference[3][staged_rows][stride];
  float warped_mean[3][rows][cols];
  float reference_mean[3][rows][cols];
};

// Stages the warped and the reference colours of the tile of the block at (x0, y0): bytes times
// (1 / 255) as the texture reads them, 0 outside the W x H images and in the unused columns
// beyond the halo. Each image is given by its first byte and its row pitch in bytes.
void stage_ncc_colours(NccTile& tile, const unsigned char* warped, std::size_t warped_pitch,
                       const unsigned char* reference, std::size_t reference_pitch, int x0, int y0, int W, int H);

// The window sums of every pixel of the tile, exactly as NccSums::add accumulates them one pixel
// at a time; the pixels of a row are summed side by side in vector registers.
void ncc_tile_sums(NccTile const& tile, NccSums (&sums)[NccTile::rows][NccTile::cols]);

}  // namespace depthmap_estimation_kernels
