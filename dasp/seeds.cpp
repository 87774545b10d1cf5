#include "dasp/seeds.h"

#include <algorithm>
#include <cmath>

namespace dasp {

namespace {

// Density sums over 2^l x 2^l blocks for each level l; level 0 is the density itself.
struct Pyramid {
  std::vector<std::vector<double>> sums;
  std::vector<unsigned> widths;
  std::vector<unsigned> heights;

  double at(int level, unsigned bx, unsigned by) const {
    return sums[level][static_cast<std::size_t>(by) * widths[level] + bx];
  }
};

Pyramid build_pyramid(const std::vector<float>& density, unsigned width, unsigned height) {
  Pyramid p;
  p.sums.emplace_back(density.begin(), density.end());
  p.widths.push_back(width);
  p.heights.push_back(height);
  while (p.widths.back() > 1 || p.heights.back() > 1) {
    const unsigned w = p.widths.back(), h = p.heights.back();
    const unsigned nw = (w + 1) / 2, nh = (h + 1) / 2;
    const std::vector<double>& below = p.sums.back();
    std::vector<double> level(static_cast<std::size_t>(nw) * nh, 0.0);
    for (unsigned y = 0; y < h; ++y)
      for (unsigned x = 0; x < w; ++x) level[(y / 2) * nw + x / 2] += below[static_cast<std::size_t>(y) * w + x];
    p.sums.push_back(std::move(level));
    p.widths.push_back(nw);
    p.heights.push_back(nh);
  }
  return p;
}

struct Walker {
  const std::vector<float>& density;
  unsigned width;
  unsigned height;
  const Pyramid& pyramid;
  std::vector<Seed>& seeds;
  double carry = 0.5;  // starts at one half so that the count is the rounded total

  // Visits the square with corner (x0, y0) spanned by the vectors a and b, of side 2^level, in
  // Hilbert order. A square holding at most one seed's worth of density is a leaf.
  void visit(int level, int x0, int y0, int ax, int ay, int bx, int by) {
    const int xmin = std::min(x0, x0 + ax + bx), ymin = std::min(y0, y0 + ay + by);
    if (xmin >= static_cast<int>(width) || ymin >= static_cast<int>(height)) return;
    const double mass = pyramid.at(level, static_cast<unsigned>(xmin) >> level, static_cast<unsigned>(ymin) >> level);
    if (!(mass > 0.0)) return;
    if (mass <= 1.0 || level == 0) {
      leaf(level, static_cast<unsigned>(xmin), static_cast<unsigned>(ymin), mass);
      return;
    }
    const int hax = ax / 2, hay = ay / 2, hbx = bx / 2, hby = by / 2;
    visit(level - 1, x0, y0, hbx, hby, hax, hay);
    visit(level - 1, x0 + hax, y0 + hay, hax, hay, hbx, hby);
    visit(level - 1, x0 + hax + hbx, y0 + hay + hby, hax, hay, hbx, hby);
    visit(level - 1, x0 + hax + bx, y0 + hay + by, -hbx, -hby, -hax, -hay);
  }

  void leaf(int level, unsigned xmin, unsigned ymin, double mass) {
    carry += mass;
    if (carry < 1.0) return;
    carry -= 1.0;
    carry -= std::floor(carry);  // a single pixel takes one seed however dense it is
    // The seed goes to the density-weighted centre of the square's part inside the image.
    const unsigned side = 1u << level;
    const unsigned xmax = std::min(width, xmin + side), ymax = std::min(height, ymin + side);
    double sx = 0.0, sy = 0.0, sw = 0.0;
    for (unsigned y = ymin; y < ymax; ++y) {
      for (unsigned x = xmin; x < xmax; ++x) {
        const double d = density[static_cast<std::size_t>(y) * width + x];
        sx += d * x;
        sy += d * y;
        sw += d;
      }
    }
    const double cx = std::floor(sx / sw + 0.5), cy = std::floor(sy / sw + 0.5);
    seeds.push_back(Seed{std::clamp(static_cast<unsigned>(cx), xmin, xmax - 1),
                         std::clamp(static_cast<unsigned>(cy), ymin, ymax - 1)});
  }
};

}  // namespace

std::vector<Seed> place_seeds(const std::vector<float>& density, unsigned width, unsigned height) {
  std::vector<Seed> seeds;
  if (width == 0 || height == 0) return seeds;
  const Pyramid pyramid = build_pyramid(density, width, height);
  const int top = static_cast<int>(pyramid.sums.size()) - 1;
  const int side = 1 << top;
  Walker walker{density, width, height, pyramid, seeds};
  walker.visit(top, 0, 0, side, 0, 0, side);
  return seeds;
}

}  // namespace dasp
