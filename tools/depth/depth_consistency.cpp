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

// Neighbours this many pixels away give the normal; one farther than this share of the depth
// lies across an edge and is left out.
constexpr int kNormalStep = 2;
constexpr double kMostNormalJump = 0.05;

Point3 minus(Point3 a, Point3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
double dot(Point3 a, Point3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
Point3 cross(Point3 a, Point3 b) { return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x}; }

// The world point of the depth at (x, y) when it lies on the surface of the depth d nearby.
bool nearby_point(const ViewGeometry& v, const CMatrix<float>& depth, int x, int y, double d, Point3& p) {
  if (x < 0 || y < 0 || x >= depth.xSize || y >= depth.ySize) return false;
  const double e = depth(x, y);
  if (!(e > 0) || std::fabs(e - d) > kMostNormalJump * d) return false;
  p = back_project(v, x, y, e);
  return true;
}

// The step along the surface from the depths kNormalStep pixels before and after (x, y) in the
// direction (dx, dy), one-sided where one of them is missing.
bool tangent(const ViewGeometry& v, const CMatrix<float>& depth, int x, int y, double d, Point3 p, int dx, int dy,
             Point3& t) {
  Point3 before, after;
  const bool b = nearby_point(v, depth, x - dx, y - dy, d, before);
  const bool a = nearby_point(v, depth, x + dx, y + dy, d, after);
  if (!a && !b) return false;
  t = minus(a ? after : p, b ? before : p);
  return true;
}

// The unit normal of the surface at (x, y), facing the view; false where the depths around give
// none.
bool surface_normal(const ViewGeometry& v, const CMatrix<float>& depth, int x, int y, double d, Point3 p,
                    Point3 centre, Point3& n) {
  Point3 tx, ty;
  if (!tangent(v, depth, x, y, d, p, kNormalStep, 0, tx) || !tangent(v, depth, x, y, d, p, 0, kNormalStep, ty))
    return false;
  n = cross(tx, ty);
  const double length = std::sqrt(dot(n, n));
  if (!(length > 0)) return false;
  const double sign = dot(n, minus(centre, p)) < 0 ? -1.0 : 1.0;
  n = {sign * n.x / length, sign * n.y / length, sign * n.z / length};
  return true;
}

struct Limits {
  double most_pixels, most_relative, least_facing_cosine, least_normal_cosine, hidden_share;
};

// One other view's verdict on the point p of pixel (x, y) at depth d: 2 it confirms it, 1 it
// could see it but does not confirm it, 0 it cannot see it.
int verdict(const ViewGeometry& reference, const ViewGeometry& other, Point3 other_centre,
            const CMatrix<float>& other_depth, Point3 p, const Point3* normal, double x, double y, double d,
            const Limits& l) {
  double u, v, z;
  if (!project(other, p, u, v, z)) return 0;
  const long iu = std::lround(u), iv = std::lround(v);
  if (iu < 0 || iv < 0 || iu >= other.width || iv >= other.height) return 0;
  const int ju = static_cast<int>(iu), jv = static_cast<int>(iv);
  const float d_other = other_depth(ju, jv);
  // Carried back along the ray through (u, v) itself, not through the pixel's centre, so that the
  // rounding to a pixel does not count as disagreement.
  double bx, by, bz;
  if (d_other > 0 && project(reference, back_project(other, u, v, d_other), bx, by, bz) &&
      std::hypot(bx - x, by - y) <= l.most_pixels && std::fabs(bz - d) <= l.most_relative * d) {
    // Planes that run past an object's outline in two views cross, and agree in depth only along
    // that line, at normals apart; one surface has one normal in both maps.
    Point3 n_other;
    if (normal == nullptr ||
        !surface_normal(other, other_depth, ju, jv, d_other, back_project(other, ju, jv, d_other), other_centre,
                        n_other) ||
        dot(*normal, n_other) >= l.least_normal_cosine)
      return 2;
    return 1;
  }
  if (normal != nullptr) {
    const Point3 to = minus(other_centre, p);
    if (dot(*normal, to) < l.least_facing_cosine * std::sqrt(dot(to, to))) return 0;
  }
  return d_other > 0 && d_other < (1.0 - l.hidden_share) * z ? 0 : 1;
}

}  // namespace

DepthVerdicts judge_depths(const std::vector<ViewGeometry>& views, const std::vector<CMatrix<float>>& depths,
                           int reference, const std::vector<int>& others, const VerdictSettings& settings) {
  const ViewGeometry& r = views[reference];
  const CMatrix<float>& depth = depths[reference];
  const double focal = std::min(r.fx, r.fy);
  const Limits limits{std::max(kLeastPixels, kMostAngle * focal), std::min(kMostRelativeDepth, 1.0 / focal),
                      std::cos(settings.most_turn_degrees * M_PI / 180.0),
                      std::cos(settings.most_normal_degrees * M_PI / 180.0), settings.hidden_share};
  std::vector<Point3> centres;
  for (const ViewGeometry& v : views) centres.push_back(back_project(v, 0, 0, 0));
  DepthVerdicts out{CMatrix<unsigned char>(depth.xSize, depth.ySize), CMatrix<unsigned char>(depth.xSize, depth.ySize)};
  std::fill(out.agreeing.data, out.agreeing.data + out.agreeing.size(), static_cast<unsigned char>(0));
  std::fill(out.seeing.data, out.seeing.data + out.seeing.size(), static_cast<unsigned char>(0));
#pragma omp parallel for schedule(static)
  for (int y = 0; y < depth.ySize; ++y)
    for (int x = 0; x < depth.xSize; ++x) {
      const double d = depth(x, y);
      if (!(d > 0)) continue;
      const Point3 p = back_project(r, x, y, d);
      Point3 n;
      const bool has_normal = surface_normal(r, depth, x, y, d, p, centres[reference], n);
      int agreeing = 0, seeing = 0;
      for (int j : others) {
        const int v = verdict(r, views[j], centres[j], depths[j], p, has_normal ? &n : nullptr, x, y, d, limits);
        agreeing += v == 2, seeing += v > 0;
      }
      out.agreeing(x, y) = static_cast<unsigned char>(std::min(agreeing, 255));
      out.seeing(x, y) = static_cast<unsigned char>(std::min(seeing, 255));
    }
  return out;
}

CMatrix<unsigned char> agreement_image(const CMatrix<unsigned char>& counts) {
  CMatrix<unsigned char> image(counts.xSize, counts.ySize);
  for (std::size_t i = 0; i < counts.size(); ++i)
    image.data[i] = static_cast<unsigned char>(51 * std::min<int>(counts.data[i], 5));
  return image;
}

}  // namespace depth_tool
