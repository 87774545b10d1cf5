#include "tools/scene/render_view.h"

#include <algorithm>
#include <numbers>

#include "formats/depth_png.h"
#include "image/png_io.h"
#include "tools/scene/texture.h"

namespace scene {

double normal_deviate(uint64_t counter) {
  const uint64_t a = hash64(counter * 2), b = hash64(counter * 2 + 1);
  // u1 in (0, 1] keeps the logarithm finite.
  const double u1 = (static_cast<double>(a >> 11) + 1.0) * (1.0 / 9007199254740992.0);
  const double u2 = static_cast<double>(b >> 11) * (1.0 / 9007199254740992.0);
  return std::sqrt(-2.0 * std::log(u1)) * std::cos(2.0 * std::numbers::pi * u2);
}

double depth_noise(double noise, uint64_t seed, int view, int pixel, double depth) {
  if (noise <= 0) return 0;
  const uint64_t counter = hash64(seed) ^ (static_cast<uint64_t>(view) << 40) ^
                           static_cast<uint64_t>(static_cast<uint32_t>(pixel));
  return noise * depth * depth * normal_deviate(counter);
}

void write_colour_png(const std::string& path, const RenderedView& view) {
  png_io::write_png(path.c_str(), "write_colour_png", view.width, view.height, 3, view.rgb);
}

RenderedView render_view(const Scene& scene, const SceneCamera& camera, int view_index,
                         double noise, uint64_t seed, Appearance appearance) {
  RenderedView v;
  v.width = camera.width;
  v.height = camera.height;
  const size_t n = static_cast<size_t>(v.width) * v.height;
  v.depth.assign(n, 0.0);
  v.measured.assign(n, 0.0);
  v.depth_mm.assign(n, 0);
  v.rgb.assign(3 * n, 0);
  v.shape.assign(n, -1);

#pragma omp parallel for schedule(static)
  for (int y = 0; y < v.height; ++y) {
    for (int x = 0; x < v.width; ++x) {
      const int i = y * v.width + x;
      const Vec3 dir = pixel_direction(camera, x, y);
      const Hit hit = cast_ray(scene, camera.center, dir);
      Vec3 colour;
      if (hit.found) {
        const double z = camera_depth(camera, hit.point);
        v.depth[i] = z;
        v.measured[i] = std::max(z + depth_noise(noise, seed, view_index, i, z), 0.001);
        v.depth_mm[i] = depth_to_thousandths(v.measured[i]);
        v.shape[i] = hit.shape;
        colour = appearance_surface_colour(appearance, scene.shapes[hit.shape], hit);
      } else {
        colour = appearance_background_colour(appearance, dir);
      }
      const double c[3] = {colour.x, colour.y, colour.z};
      for (int k = 0; k < 3; ++k)
        v.rgb[3 * i + k] = static_cast<uint8_t>(std::clamp(std::floor(c[k] * 255.0 + 0.5), 0.0, 255.0));
    }
  }
  return v;
}

}  // namespace scene
