#include "src/tiles/scaffold.h"

#include <algorithm>
#include <cfloat>
#include <iostream>
#include <stdexcept>

#include "src/core/back_project.h"
#include "src/core/settings.h"
#include "src/core/viewer_hooks.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/seed/create_particles_from_superpixels.h"
#include "src/seed/create_superpixels.h"
#include "src/seed/particles_to_images.h"

namespace {

// The largest pixel of a depth map, starting from its first (0 included), as the depth statistics take it.
float largest_pixel(const CMatrix<float>& m) {
  float v = m.size() > 0 ? m.data[0] : 0.0f;
  for (std::size_t i = 1; i < m.size(); ++i) v = std::max(v, m.data[i]);
  return v;
}

}  // namespace

Scaffold read_scaffold(int view_count, const ViewSource& read) {
  Scaffold s;
  s.cameras.resize(view_count);
  s.labels.resize(view_count);
  s.input_min = FLT_MAX;
  std::vector<float> medians;
  for (int i = 0; i < view_count; ++i) {
    Camera& cam = s.cameras[i];
    CMatrix<float> depth;
    read(i, cam, depth);
    std::vector<float> positive;
    for (std::size_t k = 0; k < depth.size(); ++k)
      if (depth.data[k] > 0.0f) positive.push_back(depth.data[k]);
    if (!positive.empty()) {
      s.input_pixels += positive.size();
      const auto [lo, hi] = std::minmax_element(positive.begin(), positive.end());
      s.input_min = std::min(s.input_min, *lo);
      s.input_max = std::max(s.input_max, *hi);
      std::nth_element(positive.begin(), positive.begin() + positive.size() / 2, positive.end());
      medians.push_back(positive[positive.size() / 2]);
    }
    s.view_maxima.push_back(largest_pixel(depth));
    std::vector<Superpixel> superpixels;
    create_superpixels(superpixels, depth, cam.image, cam, average_depth, superpixel_count);
    create_particles_from_superpixels(s.particles, s.offsets, s.normals, superpixels, CMatrix<float>(),
                                      CMatrix<float3>(), depth, cam);
    s.labels[i] = label_superpixels(superpixels, depth.xSize, depth.ySize);
    cam.image = CMatrix<uchar4>();
  }
  if (s.input_pixels == 0) s.input_min = 0.0f;
  if (!medians.empty()) {
    std::nth_element(medians.begin(), medians.begin() + medians.size() / 2, medians.end());
    s.input_median = medians[medians.size() / 2];
  }
  std::vector<float> maxima = s.view_maxima;
  if (!maxima.empty()) {
    std::nth_element(maxima.begin(), maxima.begin() + maxima.size() / 2, maxima.end());
    depth_range_max = maxima[maxima.size() / 2];
    std::cout << "maximum depth = " << static_cast<double>(depth_range_max) << std::endl;
  }
  return s;
}

void filter_scaffold(Scaffold& s, const FilterOptions& filter, const SupportFilterOptions& support) {
  if (support.rule.visible()) throw std::invalid_argument("filter_scaffold: the visible share needs the whole model");
  std::cout << " Filter particles,     radius = " << filter.radius << "\n";
  std::cout << "                   #particles = " << s.particles.size() << "\n";
  filter_particles(s.particles, s.offsets, s.normals, filter);
  support_filter(s.particles, s.offsets, s.normals, {}, support);
  sendParticlesToLumvik(s.particles, s.offsets, {}, "particles", debug_lumvik_particle_iteration++);
}

void scaffold_images(const Scaffold& s, int view, CMatrix<float>& depth, CMatrix<float3>& normal_map) {
  // Only the view's own particles are drawn; the others are skipped in the same order.
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
  for (std::size_t i = 0; i < s.particles.size(); ++i)
    if (s.particles[i].camera_index == view) {
      particles.push_back(s.particles[i]);
      offsets.push_back(s.offsets[i]);
      normals.push_back(s.normals[i]);
    }
  particles_to_images(depth, normal_map, particles, offsets, normals, superpixels_from_labels(s.labels[view]),
                      s.cameras[view], depth_range_min, depth_range_max);
}

FineStarts fine_starts(const Scaffold& s, int sample_stride) {
  FineStarts f;
  f.sample_stride = sample_stride;
  for (std::size_t v = 0; v < s.cameras.size(); ++v) {
    const Camera& cam = s.cameras[v];
    CMatrix<float> depth;
    CMatrix<float3> normal_map;
    scaffold_images(s, static_cast<int>(v), depth, normal_map);
    const float inv_fx = 1.0f / cam.K[0], inv_fy = 1.0f / cam.K[4];
    SpaceBox box = empty_box();
    std::uint64_t count = 0;
    for (int y = 0; y < depth.ySize; ++y)
      for (int x = 0; x < depth.xSize; ++x) {
        const float a = depth(x, y);
        if (!usable_depth(a, depth_range_min, depth_range_max)) continue;
        const float3 q = back_project(x, y, a, depth.xSize, depth.ySize, cam, inv_fx, inv_fy);
        include_point(box, q);
        ++count;
        if (x % sample_stride == 0 && y % sample_stride == 0) f.samples.push_back(q);
      }
    f.view_boxes.push_back(box);
    f.view_particles.push_back(count);
  }
  return f;
}
