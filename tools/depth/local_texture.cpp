#include "tools/depth/local_texture.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace depth_tool {
namespace {

// Sums of a channel and of its squares over every window, from summed-area tables.
struct WindowSums {
  int W, H, radius;
  std::vector<double> sum, squares;  // (W + 1) x (H + 1), row y + 1 and column x + 1 hold pixel (x, y)

  WindowSums(const CMatrix<uchar4>& image, int k, int r) : W(image.xSize), H(image.ySize), radius(r) {
    const std::size_t stride = static_cast<std::size_t>(W) + 1;
    sum.assign(stride * (H + 1), 0.0), squares.assign(sum.size(), 0.0);
    for (int y = 0; y < H; ++y) {
      double row = 0, row_squares = 0;
      for (int x = 0; x < W; ++x) {
        const uchar4 p = image.data[static_cast<std::size_t>(y) * W + x];
        const double v = k == 0 ? p.x : (k == 1 ? p.y : p.z);
        row += v, row_squares += v * v;
        sum[(y + 1) * stride + x + 1] = sum[y * stride + x + 1] + row;
        squares[(y + 1) * stride + x + 1] = squares[y * stride + x + 1] + row_squares;
      }
    }
  }
  // Mean and standard deviation of the window around (x, y) that lies inside the image.
  void at(int x, int y, double& mean, double& deviation) const {
    const std::size_t stride = static_cast<std::size_t>(W) + 1;
    const int x0 = std::max(x - radius, 0), x1 = std::min(x + radius + 1, W);
    const int y0 = std::max(y - radius, 0), y1 = std::min(y + radius + 1, H);
    const auto box = [&](const std::vector<double>& t) {
      return t[y1 * stride + x1] - t[y0 * stride + x1] - t[y1 * stride + x0] + t[y0 * stride + x0];
    };
    const double n = static_cast<double>((x1 - x0) * (y1 - y0));
    mean = box(sum) / n;
    deviation = std::sqrt(std::max(box(squares) / n - mean * mean, 0.0));
  }
};

}  // namespace

CMatrix<float> local_texture(const CMatrix<uchar4>& image, int radius) {
  const int W = image.xSize, H = image.ySize;
  CMatrix<float> texture(W, H);
  const WindowSums channels[3] = {{image, 0, radius}, {image, 1, radius}, {image, 2, radius}};
#pragma omp parallel for schedule(static)
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      double spread = 0;
      for (int k = 0; k < 3; ++k) {
        double mean, deviation;
        channels[k].at(x, y, mean, deviation);
        spread += deviation / 3.0;
      }
      texture(x, y) = static_cast<float>(spread);
    }
  return texture;
}

}  // namespace depth_tool
