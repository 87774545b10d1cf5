#include "tools/depth/plane_search.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "tools/depth/dominant_planes.h"
#include "tools/depth/fixed_draw.h"
#include "tools/depth/matching_frame.h"
#include "tools/depth/slanted_window.h"

namespace depth_tool {
namespace {

// A number in [-1, 1) from the pixel, the pass and the draw: the same on every run and with any
// number of threads.
double draw(int x, int y, int pass, int k) {
  const std::uint64_t z = mixed((static_cast<std::uint64_t>(y) << 40) ^ (static_cast<std::uint64_t>(x) << 16) ^
                                (static_cast<std::uint64_t>(pass) << 4) ^ static_cast<std::uint64_t>(k));
  return static_cast<double>(z >> 11) * (2.0 / 9007199254740992.0) - 1.0;
}

// The window cost over the neighbours that see the whole window: the mean of the better half of
// them when `robust`, of all of them otherwise; false when none sees it.
bool view_cost(const std::vector<WindowPair>& pairs, const ReferenceWindow& window, int stride, const Plane& q,
               bool robust, double& cost) {
  double costs[16];
  int seen = 0;
  for (const WindowPair& p : pairs) {
    double one;
    if (seen < 16 && window_cost(p, window, q.a, stride * q.b, stride * q.c, one)) costs[seen++] = one;
  }
  if (seen == 0) return false;
  const int used = robust ? (seen + 1) / 2 : seen;
  if (used < seen) std::partial_sort(costs, costs + used, costs + seen);
  double sum = 0;
  for (int k = 0; k < used; ++k) sum += costs[k];
  cost = sum / used;
  return true;
}

// Whether plane q, held at pixel (u, v), is the scene plane there: within `tolerance` of its
// inverse depth.
bool holds(const Plane& q, const ImagePlane& g, int u, int v, double tolerance) {
  return q.valid && std::fabs(q.a - g.at(u, v)) <= tolerance * q.a;
}

// Whether pixels that hold the scene plane (within `tolerance` of its inverse depth) lie within
// `reach` of (x, y) in all four directions: inside the plane's region, not beyond its edge, where a
// window would match the plane by the side that holds it. Only pixels an odd number of steps away
// are read: those of the other colour, which the half-pass does not write.
bool enclosed(const std::vector<Plane>& planes, int W, int H, int x, int y, const ImagePlane& g, double tolerance,
              int reach) {
  for (const auto [dx, dy] : {std::array<int, 2>{1, 0}, {-1, 0}, {0, 1}, {0, -1}}) {
    bool held = false;
    for (int k = 1; k <= reach && !held; k += 2) {
      const int u = x + k * dx, v = y + k * dy;
      if (u < 0 || v < 0 || u >= W || v >= H) break;
      held = holds(planes[static_cast<std::size_t>(v) * W + u], g, u, v, tolerance);
    }
    if (!held) return false;
  }
  return true;
}

// Whether most of the well-matched pixels (window cost at most `max_cost`) under the samples of
// a widened window hold the scene plane: the texture the window matches by is the plane's, not
// that of another surface around a patch of its own. Of each sample the pixel beside it towards
// the centre is read, one of the other colour, which the half-pass does not write.
bool window_on_plane(const std::vector<Plane>& planes, const std::vector<double>& cost, int W, int x, int y,
                     int radius, int stride, const ImagePlane& g, double tolerance, double max_cost) {
  int matched = 0, holding = 0;
  for (int v = y - radius; v <= y + radius; v += stride)
    for (int w = x - radius; w <= x + radius; w += stride) {
      const int u = w <= x ? w + 1 : w - 1;  // towards the centre: inside the image
      const std::size_t j = static_cast<std::size_t>(v) * W + u;
      if (!planes[j].valid || cost[j] > max_cost) continue;
      ++matched;
      holding += holds(planes[j], g, u, v, tolerance);
    }
  return 2 * holding > matched;
}

// The smallest widening (2 to `most`) at which the window, that many times wider and sparser,
// spreads over min_texture grey levels; 1 when none does or the window leaves the image.
int textured_widening(const Grey& grey, const ViewGeometry& r, int x, int y, const PlaneSearchSettings& s, int most,
                      ReferenceWindow& window) {
  for (int k = 2; k <= most; ++k) {
    if (!reference_window(grey, r, x, y, s.radius * k, window, s.stride * k)) return 1;
    if (window.norm >= s.min_texture * s.min_texture * static_cast<double>(window.centred.size())) return k;
  }
  return 1;
}

}  // namespace

PlaneSearchStatistics search_planes(CMatrix<float>& depth, const Camera& reference,
                                    const std::vector<const Camera*>& neighbours, const CMatrix<float>& texture,
                                    const PlaneSearchSettings& s, const std::vector<CMatrix<float>>& offered) {
  const MatchingFrame frame = matching_frame(reference, neighbours, s.near, s.far);
  const ViewGeometry& r = frame.geometry;
  const int W = reference.width, H = reference.height, R = s.radius;
  const double w_low = frame.w_low, w_high = frame.w_high;
  const std::size_t n = static_cast<std::size_t>(W) * H;
  std::vector<Plane> planes(n);
  constexpr double kNone = 2.0;  // the cost of a plane no neighbour sees: worse than any window's
  std::vector<double> cost(n, kNone);
  std::vector<char> only_scene(n, 0);
  std::vector<unsigned char> widening(n, 1);  // how many times wider and sparser a pixel's window is
  // A weak patch is a share of a surface: its size in pixels, and so the widest window and the
  // reach that span it, grow with the image.
  const int most_widening = std::clamp(static_cast<int>(s.widest_window * W / R), 1, 255);
  const int widened_reach = static_cast<int>(s.widened_reach * W);

  // The starting planes: the depth on the plane fitted around it, or a random depth facing the camera.
#pragma omp parallel for schedule(dynamic, 4)
  for (int y = 0; y < H; ++y) {
    ReferenceWindow window;
    for (int x = 0; x < W; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * W + x;
      const bool has_depth = depth(x, y) > 0;
      // A pixel inside a weakly textured patch has nothing to match in its own window; on a wider
      // one that reaches the texture around the patch it is offered the scene planes only, where
      // their pixels enclose the patch.
      if (!has_depth && texture(x, y) < s.min_texture) {
        widening[i] = static_cast<unsigned char>(textured_widening(frame.grey, r, x, y, s, most_widening, window));
        only_scene[i] = widening[i] > 1;
        continue;
      }
      if (!reference_window(frame.grey, r, x, y, R, window, s.stride)) continue;
      // Without a depth, a pixel needs texture of its own too to search freely: a window that
      // straddles the edge of a flat background matches by its textured side alone. Such a pixel
      // (inside a flat check, on a smooth stripe) is offered only the scene planes, which its
      // window's textured side matches only where the pixel's surface continues that side's plane.
      if (!has_depth && frame.fine_texture(x, y) < s.min_fine_texture) {
        only_scene[i] = 1;
        continue;
      }
      Plane& q = planes[i];
      if (has_depth) {
        if (!fit_plane(depth, x, y, R, 2.0 * s.label_step, q.a, q.b, q.c)) q.b = q.c = 0;
        q.a = 1.0 / depth(x, y);
      } else {
        q.a = w_low + 0.5 * (draw(x, y, -1, 0) + 1.0) * (w_high - w_low);
      }
      q.valid = true;
      if (!view_cost(frame.pairs, window, s.stride, q, s.robust, cost[i])) cost[i] = kNone;
    }
  }

  std::vector<std::array<int, 2>> offsets;
  for (int k : s.reaches) offsets.insert(offsets.end(), {{-k, 0}, {k, 0}, {0, -k}, {0, k}});
  // A pixel's visit can only lower its cost, so a plane that lost at its last visit loses again.
  // Per pixel: the half-pass in which its plane last changed, and which of the planes moved from
  // the pixels around it were scored (or had lost before) at its last visit; such a plane that
  // has not changed since is not scored again.
  std::vector<int> changed_in(n, -1);
  std::vector<std::uint64_t> lost(n, 0);
  for (int pass = 0; pass < s.passes; ++pass) {
    // The planes that most well-matched pixels share (a floor, a wall) reach every pixel at once,
    // where the nearby planes cannot bring them: across a region whose repetitive texture matched
    // wrongly throughout.
    const std::vector<ImagePlane> scene = dominant_planes(planes, cost, W, H, s.scene_planes);
    // Random changes shrink pass by pass: from two label steps in depth and a turn of the slant
    // by half a unit of its tangent.
    const double tolerance = s.scene_planes.tolerance;
    const double same_a = 1e-3 * s.label_step, same_slant = same_a / (2 * R + 1);
    const double shrink = std::ldexp(1.0, -pass), depth_change = 2.0 * s.label_step * shrink,
                 slant_change = 0.5 * shrink / r.fx;
    for (int colour = 0; colour < 2; ++colour) {
      const int half = 2 * pass + colour, last_visit = half - 2;
#pragma omp parallel for schedule(dynamic, 4)
      for (int y = 0; y < H; ++y) {
        ReferenceWindow window;
        for (int x = (y + colour) % 2; x < W; x += 2) {
          const std::size_t i = static_cast<std::size_t>(y) * W + x;
          Plane best = planes[i];
          const int wide = widening[i], stride = s.stride * wide;
          if (!(best.valid || only_scene[i]) || !reference_window(frame.grey, r, x, y, R * wide, window, stride))
            continue;
          double best_cost = cost[i];
          // False when the plane was not scored, being a copy of the pixel's own plane.
          const auto offer = [&](const Plane& q) {
            // A copy of the pixel's own plane (spread to the pixels around it) is not scored again.
            if (std::fabs(q.a - best.a) < same_a && std::fabs(q.b - best.b) < same_slant &&
                std::fabs(q.c - best.c) < same_slant)
              return false;
            double c;
            if (q.a >= w_low && q.a <= w_high && view_cost(frame.pairs, window, stride, q, s.robust, c) &&
                c < best_cost)
              best_cost = c, best = q;
            return true;
          };
          for (const ImagePlane& g : scene)
            if (!only_scene[i] ||
                (enclosed(planes, W, H, x, y, g, tolerance, wide > 1 ? widened_reach : s.reaches.back()) &&
                 (wide == 1 || window_on_plane(planes, cost, W, x, y, R * wide, stride, g, tolerance,
                                               s.scene_planes.max_cost))))
              offer(Plane{g.at(x, y), g.b, g.c, true});
          if (only_scene[i]) {
            if (best_cost < cost[i]) changed_in[i] = half;
            planes[i] = best, cost[i] = best_cost;
            continue;
          }
          const std::uint64_t lost_before = lost[i];
          std::uint64_t lost_now = 0;
          for (std::size_t k = 0; k < offsets.size(); ++k) {
            const auto& o = offsets[k];
            const int u = x + o[0], v = y + o[1];
            if (u < 0 || v < 0 || u >= W || v >= H) continue;
            const std::size_t j = static_cast<std::size_t>(v) * W + u;
            const Plane& q = planes[j];
            if (!q.valid) continue;
            const std::uint64_t bit = k < 64 ? std::uint64_t{1} << k : 0;
            if ((lost_before & bit) && changed_in[j] < last_visit) {
              lost_now |= bit;
              continue;
            }
            Plane moved = q;  // the other pixel's plane, moved to this pixel
            moved.a = q.a - q.b * o[0] - q.c * o[1];
            if (offer(moved)) lost_now |= bit;
          }
          if (pass == 0)
            for (const CMatrix<float>& m : offered)
              if (m(x, y) > 0) {
                Plane q = best;
                q.a = 1.0 / m(x, y);
                offer(q);
              }
          Plane random = best;
          random.a = w_low + 0.5 * (draw(x, y, pass, 0) + 1.0) * (w_high - w_low);
          offer(random);
          for (int k = 1; k <= 2; ++k) {
            Plane changed = best;
            changed.a += depth_change * draw(x, y, pass, 3 * k);
            changed.b += slant_change * best.a * draw(x, y, pass, 3 * k + 1);
            changed.c += slant_change * best.a * draw(x, y, pass, 3 * k + 2);
            offer(changed);
          }
          if (best_cost < cost[i]) changed_in[i] = half;
          planes[i] = best, cost[i] = best_cost, lost[i] = lost_now;
        }
      }
    }
  }

  PlaneSearchStatistics st;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) {
      const std::size_t i = static_cast<std::size_t>(y) * W + x;
      if (!planes[i].valid) continue;
      ++st.searched;
      const bool had = depth(x, y) > 0;
      // A plane at an end of the range is the range's guess, not the surface's (the far end
      // holds the sky and every flat background).
      const double a = planes[i].a;
      if (1.0 - cost[i] >= s.min_score && a > w_low + s.label_step && a < w_high - s.label_step) {
        depth(x, y) = static_cast<float>(1.0 / planes[i].a);
        ++st.kept, st.added += !had;
      } else {
        depth(x, y) = 0;
      }
    }
  return st;
}

}  // namespace depth_tool
