#include "src/seed/create_superpixels.h"

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>

#include "dasp/superpixels.h"
#include "image/CTensor.h"
#include "src/core/settings.h"

namespace {

// Depth in steps of 1/1000 of the average depth, rounded; out-of-range values are clamped to the
// 16-bit range (NaN becomes 0, no depth).
unsigned short normalised_depth(float depth, float average_depth) {
  const float steps = std::floor(1000.0f * depth / average_depth + 0.5f);
  if (!(steps > 0.0f)) return 0;
  return static_cast<unsigned short>(std::min(steps, 65535.0f));
}

// Writes the view with each pixel in its superpixel's colour to "/debug/superpixels_<n>.png".
void write_superpixel_image(const std::vector<Superpixel>& superpixels, int width, int height) {
  static int image_number = 0;
  CTensor<unsigned char> picture(width, height, 3);
  for (const Superpixel& s : superpixels)
    for (const auto& [x, y] : s.pixels) {
      picture(x, y, 0) = s.color.x;
      picture(x, y, 1) = s.color.y;
      picture(x, y, 2) = s.color.z;
    }
  picture.writeToPNG((output_directory + "/debug/superpixels_" + std::to_string(image_number++) + ".png").c_str());
}

}  // namespace

dasp::Parameters superpixel_parameters(const Camera& camera, int count) {
  dasp::Parameters parameters;
  parameters.principal_x = camera.image_coordinates ? camera.K[6] : camera.width - 1 - camera.K[6];
  parameters.principal_y = camera.image_coordinates ? camera.K[7] : camera.height - 1 - camera.K[7];
  parameters.focal = camera.K[0];
  parameters.depth_scale = 0.001f;
  parameters.weight_spatial = 4.0f;
  parameters.weight_color = 2.0f;
  parameters.weight_normal = 1.0f;
  parameters.iterations = 10;
  parameters.base_radius = 0.018f;
  parameters.count = static_cast<unsigned>(std::max(count, 0));
  return parameters;
}

void create_superpixels(std::vector<Superpixel>& superpixels, const CMatrix<float>& depth,
                        const CMatrix<uchar4>& image, const Camera& camera, float average_depth, int count) {
  std::cout << "Computing superpixels ... ";

  slimage::Image3ub color(image.xSize, image.ySize);
  for (int y = 0; y < image.ySize; ++y)
    for (int x = 0; x < image.xSize; ++x) {
      const uchar4 c = image(x, y);
      color.channel(x, y, 0) = c.x;
      color.channel(x, y, 1) = c.y;
      color.channel(x, y, 2) = c.z;
    }
  slimage::Image1ui16 steps(depth.xSize, depth.ySize);
  for (int y = 0; y < depth.ySize; ++y)
    for (int x = 0; x < depth.xSize; ++x) steps.channel(x, y, 0) = normalised_depth(depth(x, y), average_depth);

  const dasp::Superpixels result = dasp::ComputeSuperpixels(color, steps, superpixel_parameters(camera, count));

  const int width = static_cast<int>(result.width);
  const long n = static_cast<long>(result.clusters.size());
  superpixels.assign(n, Superpixel{});
#pragma omp parallel for schedule(static)
  for (long k = 0; k < n; ++k) {
    const dasp::Cluster& cluster = result.clusters[k];
    Superpixel& s = superpixels[k];
    s.pixels.reserve(cluster.pixel_ids.size());
    for (unsigned id : cluster.pixel_ids) s.pixels.emplace_back(static_cast<int>(id) % width, static_cast<int>(id) / width);
    s.color = make_uchar4(static_cast<unsigned char>(static_cast<int>(cluster.color[0] * 255.0f)),
                          static_cast<unsigned char>(static_cast<int>(cluster.color[1] * 255.0f)),
                          static_cast<unsigned char>(static_cast<int>(cluster.color[2] * 255.0f)), 255);
  }

  if (debug_write_superpixel_image) write_superpixel_image(superpixels, width, static_cast<int>(result.height));
  std::cout << "   created " << superpixels.size() << " superpixels\n";
}
