#include "tools/depth/depth_consistency.h"

#include <algorithm>
#include <cmath>

namespace depth_tool {
namespace {

// Both tests follow the image's resolution, so that a finer image is held to the same angle
// instead of a tighter one: the carried-back pixel must land within 0.004 focal lengths (one
// pixel at 320 x 240, two at 640 x 480; one at least), and its depth within one pixel's size
// at that depth (1 / fx of it: 0.19 % at 640 x 480; 1 % at most). A fixed 1 % (24 mm at 2.4 m)
// confirmed depths a few millimetres apart, which the fused model showed as a thick surface.
constexpr double kMostAngle = 0.004, kLeastPixels = 1.0, kMostRelativeDepth = 0.01;

// Whether view `other`'s depth map holds, where the world point p lands in it, a surface that
// projects back onto pixel (x, y) of the reference at depth d.
bool confirms(const ViewGeometry& reference, const ViewGeometry& other, const CMatrix<float>& other_depth, Point3 p,
              double x, double y, double d, double most_pixels, double most_relative) {
  double u, v, z;
  if (!project(other, p, u, v, z)) return false;
  const long iu = std::lround(u), iv = std::lround(v);
  if (iu < 0 || iv < 0 || iu >= other.width || iv >= other.height) return false;
  const float d_other = other_depth(static_cast<int>(iu), static_cast<int>(iv));
  if (!(d_other > 0)) return false;
  // Carried back along the ray through (u, v) itself, not through the pixel's centre, so that the
  // rounding to a pixel does not count as disagreement.
  double bx, by, bz;
  if (!project(reference, back_project(other, u, v, d_other), bx, by, bz)) return false;
  return std::hypot(bx - x, by - y) <= most_pixels && std::fabs(bz - d) <= most_relative * d;
}

}  // namespace

CMatrix<unsigned char> agreeing_views(const std::vector<ViewGeometry>& views, const std::vector<CMatrix<float>>& depths,
                                      int reference, const std::vector<int>& others) {
  const ViewGeometry& r = views[reference];
  const CMatrix<float>& depth = depths[reference];
  const double focal = std::min(r.fx, r.fy);
  const double most_pixels = std::max(kLeastPixels, kMostAngle * focal);
  const double most_relative = std::min(kMostRelativeDepth, 1.0 / focal);
  CMatrix<unsigned char> counts(depth.xSize, depth.ySize);
  std::fill(counts.data, counts.data + counts.size(), static_cast<unsigned char>(0));
#pragma omp parallel for schedule(static)
  for (int y = 0; y < depth.ySize; ++y)
    for (int x = 0; x < depth.xSize; ++x) {
      const double d = depth(x, y);
      if (!(d > 0)) continue;
      const Point3 p = back_project(r, x, y, d);
      int n = 0;
      for (int j : others) n += confirms(r, views[j], depths[j], p, x, y, d, most_pixels, most_relative);
      counts(x, y) = static_cast<unsigned char>(std::min(n, 255));
    }
  return counts;
}

CMatrix<unsigned char> agreement_image(const CMatrix<unsigned char>& counts) {
  CMatrix<unsigned char> image(counts.xSize, counts.ySize);
  for (std::size_t i = 0; i < counts.size(); ++i)
    image.data[i] = static_cast<unsigned char>(51 * std::min<int>(counts.data[i], 5));
  return image;
}

}  // namespace depth_tool
