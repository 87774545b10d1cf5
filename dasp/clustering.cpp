#include "dasp/clustering.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "device/vector_math.h"

namespace dasp {

namespace {

// A cluster searches pixels within this many of its radii (in the image) around its centre.
constexpr float kWindowRadii = 2.0f;

float squared(float3 a) { return dot(a, a); }

// Rows per band of the parallel assignment. Each band is owned by one thread, so no pixel is
// written by two threads.
constexpr int kBandRows = 16;

// Pixel rectangle a cluster searches and its image radius.
struct Window {
  int x0, x1, y0, y1;
  float inv_radius_px2;
};

// Assigns each pixel to its nearest centre in the joint space. Every pixel sees the centres in
// index order and only a strictly smaller distance replaces a label, so ties go to the lower index
// and the result doesn't depend on how the bands are spread over threads.
void assign(const PixelFeatures& f, const std::vector<ClusterCenter>& centers, float radius,
            const Parameters& p, std::vector<int>& labels, std::vector<float>& best) {
  const int w = static_cast<int>(f.width), h = static_cast<int>(f.height);
  std::fill(labels.begin(), labels.end(), -1);
  std::fill(best.begin(), best.end(), std::numeric_limits<float>::infinity());
  const float inv_radius2 = 1.0f / (radius * radius);
  const float max_window = static_cast<float>(std::max(w, h));
  const int band_count = (h + kBandRows - 1) / kBandRows;

  std::vector<Window> windows(centers.size());
  std::vector<std::vector<int>> band_clusters(static_cast<std::size_t>(band_count));
  for (std::size_t k = 0; k < centers.size(); ++k) {
    const ClusterCenter& c = centers[k];
    // Pixels without depth (or clusters without depth) compare image distances, scaled to the
    // radius the cluster has in the image at its depth.
    const float radius_px = radius * p.focal / (c.depth > 0.0f ? c.depth : f.mean_depth);
    const int window = static_cast<int>(std::ceil(std::min(kWindowRadii * radius_px, max_window)));
    const int cx = static_cast<int>(std::lround(c.x)), cy = static_cast<int>(std::lround(c.y));
    Window& win = windows[k];
    win = Window{std::max(0, cx - window), std::min(w - 1, cx + window), std::max(0, cy - window),
                 std::min(h - 1, cy + window), 1.0f / (radius_px * radius_px)};
    for (int b = win.y0 / kBandRows; b <= win.y1 / kBandRows; ++b)
      band_clusters[static_cast<std::size_t>(b)].push_back(static_cast<int>(k));
  }

#pragma omp parallel for schedule(dynamic)
  for (int b = 0; b < band_count; ++b) {
    for (const int k : band_clusters[static_cast<std::size_t>(b)]) {
      const ClusterCenter& c = centers[static_cast<std::size_t>(k)];
      const Window& win = windows[static_cast<std::size_t>(k)];
      const bool has_depth = c.depth > 0.0f;
      const int y0 = std::max(win.y0, b * kBandRows), y1 = std::min(win.y1, b * kBandRows + kBandRows - 1);
      for (int y = y0; y <= y1; ++y) {
        const float dy = static_cast<float>(y) - c.y;
        for (int x = win.x0; x <= win.x1; ++x) {
          const std::size_t i = static_cast<std::size_t>(y) * f.width + static_cast<std::size_t>(x);
          float spatial, normal = 0.0f;
          if (has_depth && f.valid[i]) {
            spatial = squared(f.position[i] - c.position) * inv_radius2;
            normal = 1.0f - dot(f.normal[i], c.normal);
          } else {
            const float dx = static_cast<float>(x) - c.x;
            spatial = (dx * dx + dy * dy) * win.inv_radius_px2;
          }
          const float d = p.weight_spatial * spatial + p.weight_color * squared(f.color[i] - c.color) +
                          p.weight_normal * normal;
          if (d < best[i]) {
            best[i] = d;
            labels[i] = k;
          }
        }
      }
    }
  }
}

struct Sums {
  GeometrySums geometry;
  double r = 0, g = 0, b = 0;
};

// Moves each centre to the mean of its pixels and drops centres without pixels; labels are
// renumbered to match.
void update(const PixelFeatures& f, std::vector<ClusterCenter>& centers, std::vector<int>& labels) {
  std::vector<Sums> sums(centers.size());
  for (std::size_t i = 0; i < labels.size(); ++i) {
    if (labels[i] < 0) continue;
    Sums& s = sums[static_cast<std::size_t>(labels[i])];
    s.geometry.add(f, i);
    s.r += f.color[i].x;
    s.g += f.color[i].y;
    s.b += f.color[i].z;
  }
  std::vector<int> renumber(centers.size(), -1);
  std::size_t kept = 0;
  for (std::size_t k = 0; k < centers.size(); ++k) {
    const Sums& s = sums[k];
    const GeometrySums& g = s.geometry;
    if (g.count == 0) continue;
    ClusterCenter c = centers[k];
    c.x = static_cast<float>(g.x / g.count);
    c.y = static_cast<float>(g.y / g.count);
    c.color = float3{static_cast<float>(s.r / g.count), static_cast<float>(s.g / g.count),
                     static_cast<float>(s.b / g.count)};
    if (g.valid > 0) {
      g.surface(c.position, c.normal);
      c.depth = c.position.z;
    } else {
      c.depth = 0.0f;
    }
    renumber[k] = static_cast<int>(kept);
    centers[kept++] = c;
  }
  centers.resize(kept);
  for (int& l : labels)
    if (l >= 0) l = renumber[static_cast<std::size_t>(l)];
}

}  // namespace

std::vector<ClusterCenter> centers_from_seeds(const PixelFeatures& f, const std::vector<Seed>& seeds) {
  std::vector<ClusterCenter> centers;
  centers.reserve(seeds.size());
  for (const Seed& s : seeds) {
    const std::size_t i = static_cast<std::size_t>(s.y) * f.width + s.x;
    ClusterCenter c{};
    c.x = static_cast<float>(s.x);
    c.y = static_cast<float>(s.y);
    c.color = f.color[i];
    if (f.valid[i]) {
      c.position = f.position[i];
      c.normal = f.normal[i];
      c.depth = f.position[i].z;
    }
    centers.push_back(c);
  }
  return centers;
}

std::vector<int> cluster_pixels(const PixelFeatures& f, std::vector<ClusterCenter>& centers, float radius,
                                const Parameters& parameters) {
  const std::size_t n = static_cast<std::size_t>(f.width) * f.height;
  std::vector<int> labels(n, -1);
  std::vector<float> best(n);
  const unsigned rounds = std::max(1u, parameters.iterations);
  for (unsigned round = 0; round < rounds; ++round) {
    assign(f, centers, radius, parameters, labels, best);
    update(f, centers, labels);
  }
  return labels;
}

}  // namespace dasp
