#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/scene/appearance.h"
#include "tools/scene/ray_cast.h"
#include "tools/scene/scene_camera.h"

namespace scene {

// One rendered view, all arrays row by row with width * height entries (row y, column x at
// y * width + x), in the array order that the depth and colour files keep.
struct RenderedView {
  int width = 0, height = 0;
  std::vector<double> depth;       // true camera-frame depth, 0 where the ray hits nothing
  std::vector<double> measured;    // depth with noise added, before quantisation; 0 likewise
  std::vector<uint16_t> depth_mm;  // the depth PNG: depth_to_thousandths(measured), 0 = none
  std::vector<uint8_t> rgb;        // 3 bytes per pixel
  std::vector<int> shape;          // index of the visible shape, -1 for none
};

// Depth noise: a normal deviate with standard deviation noise * depth^2, fixed by the seed, the
// view index and the pixel, so that any order of evaluation gives the same value.
double depth_noise(double noise, uint64_t seed, int view, int pixel, double depth);

// Standard normal deviate from a counter (Box-Muller on two hashed uniforms).
double normal_deviate(uint64_t counter);

// Colours as the appearance gives them, before any per-view imaging.
RenderedView render_view(const Scene& scene, const SceneCamera& camera, int view_index,
                         double noise, uint64_t seed, Appearance appearance = Appearance::standard);

// Writes the colour image as an 8-bit RGB PNG; throws std::runtime_error naming the file.
void write_colour_png(const std::string& path, const RenderedView& view);

}  // namespace scene
