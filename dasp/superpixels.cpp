#include "dasp/superpixels.h"

#include <cmath>
#include <numbers>
#include <sstream>
#include <stdexcept>

#include "dasp/clustering.h"
#include "dasp/connectivity.h"
#include "dasp/pixel_features.h"
#include "dasp/seeds.h"
#include "device/vector_math.h"

namespace dasp {

namespace {

bool positive(float v) { return std::isfinite(v) && v > 0.0f; }

void check_arguments(const slimage::Image3ub& color, const slimage::Image1ui16& depth, const Parameters& p) {
  if (color.width() != depth.width() || color.height() != depth.height()) {
    std::ostringstream s;
    s << "dasp::ComputeSuperpixels: colour image (" << color.width() << ", " << color.height()
      << ") and depth image (" << depth.width() << ", " << depth.height() << ") differ in size";
    throw std::runtime_error(s.str());
  }
  if (!positive(p.focal)) throw std::runtime_error("dasp::ComputeSuperpixels: focal length must be positive");
  if (!positive(p.depth_scale))
    throw std::runtime_error("dasp::ComputeSuperpixels: depth scale must be positive");
  if (!std::isfinite(p.principal_x) || !std::isfinite(p.principal_y))
    throw std::runtime_error("dasp::ComputeSuperpixels: principal point must be finite");
  for (float w : {p.weight_spatial, p.weight_color, p.weight_normal})
    if (!std::isfinite(w) || w < 0.0f)
      throw std::runtime_error("dasp::ComputeSuperpixels: weights must be finite and not negative");
}

// World radius of a superpixel: the one for which the valid pixels' world area holds `count`
// discs; all pixels' area if none has depth; base_radius if no count is asked for.
float choose_radius(const PixelFeatures& f, const Parameters& p) {
  if (p.count > 0) {
    double valid_area = 0.0, all_area = 0.0;
    for (std::size_t i = 0; i < f.area.size(); ++i) {
      all_area += f.area[i];
      if (f.valid[i]) valid_area += f.area[i];
    }
    const double area = valid_area > 0.0 ? valid_area : all_area;
    const float r = static_cast<float>(std::sqrt(area / (std::numbers::pi * p.count)));
    if (positive(r)) return r;
  }
  if (!positive(p.base_radius))
    throw std::runtime_error("dasp::ComputeSuperpixels: base radius must be positive when no count is given");
  return p.base_radius;
}

struct ClusterSums {
  GeometrySums geometry;
  double r = 0, g = 0, b = 0;
};

// Final clusters from the labels: means over exactly the pixels of each cluster. Clusters that
// lost all their pixels are dropped and the labels renumbered to match.
std::vector<Cluster> collect_clusters(const slimage::Image3ub& color, const PixelFeatures& f,
                                      std::vector<int>& labels, std::size_t label_count) {
  std::vector<Cluster> clusters(label_count);
  std::vector<ClusterSums> sums(label_count);
  for (std::size_t i = 0; i < labels.size(); ++i) {
    const std::size_t k = static_cast<std::size_t>(labels[i]);
    Cluster& c = clusters[k];
    ClusterSums& s = sums[k];
    c.pixel_ids.push_back(static_cast<unsigned>(i));
    s.r += color[i][0];
    s.g += color[i][1];
    s.b += color[i][2];
    s.geometry.add(f, i);
  }
  std::vector<int> renumber(label_count, -1);
  std::vector<Cluster> kept;
  for (std::size_t k = 0; k < label_count; ++k) {
    Cluster& c = clusters[k];
    const ClusterSums& s = sums[k];
    if (c.pixel_ids.empty()) continue;
    const GeometrySums& g = s.geometry;
    const double n = g.count;
    c.color = {static_cast<float>(s.r / n / 255.0), static_cast<float>(s.g / n / 255.0),
               static_cast<float>(s.b / n / 255.0)};
    c.center = float2{static_cast<float>(g.x / n), static_cast<float>(g.y / n)};
    c.valid_count = static_cast<unsigned>(g.valid);
    c.position = float3{0, 0, 0};
    c.normal = float3{0, 0, -1};
    c.depth = 0.0f;
    if (g.valid > 0) {
      g.surface(c.position, c.normal);
      c.depth = c.position.z;
    }
    renumber[k] = static_cast<int>(kept.size());
    kept.push_back(std::move(c));
  }
  for (int& l : labels) l = renumber[static_cast<std::size_t>(l)];
  return kept;
}

}  // namespace

Superpixels ComputeSuperpixels(const slimage::Image3ub& color, const slimage::Image1ui16& depth,
                               const Parameters& parameters) {
  check_arguments(color, depth, parameters);
  Superpixels result;
  result.width = depth.width();
  result.height = depth.height();
  if (depth.empty()) return result;

  const PixelFeatures features = compute_pixel_features(color, depth, parameters);
  result.radius = choose_radius(features, parameters);

  // Expected seeds per pixel: its world area over the area of one superpixel's disc.
  const double disc = std::numbers::pi * static_cast<double>(result.radius) * result.radius;
  std::vector<float> density(features.area.size());
  for (std::size_t i = 0; i < density.size(); ++i) density[i] = static_cast<float>(features.area[i] / disc);
  std::vector<Seed> seeds = place_seeds(density, result.width, result.height);
  if (seeds.empty()) seeds.push_back(Seed{result.width / 2, result.height / 2});

  std::vector<ClusterCenter> centers = centers_from_seeds(features, seeds);
  result.labels = cluster_pixels(features, centers, result.radius, parameters);
  enforce_connectivity(result.labels, result.width, result.height, static_cast<int>(centers.size()));
  result.clusters = collect_clusters(color, features, result.labels, centers.size());
  return result;
}

}  // namespace dasp
