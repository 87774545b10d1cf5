#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/particle.h"
#include "src/filter/filter_particles.h"
#include "src/tiles/space_box.h"
#include "src/tiles/superpixel_labels.h"
#include "src/tiles/view_source.h"
#include "src/visibility/support_filter.h"

// The superpixel-level model of a run and what the fine level needs of each view besides its
// images: the whole of it is small (about 5,000 particles and a run-length cut per view), so it
// stays global and every tile builds its fine particles on the same scaffold.
struct Scaffold {
  std::vector<Camera> cameras;              // pose, intrinsics and size of every view, no images
  std::vector<SuperpixelLabels> labels;     // every view's superpixels
  std::vector<Particle> particles;          // the superpixel-level model
  std::vector<float> offsets;
  std::vector<float3> normals;
  // The input's depths, gathered view by view: pixels with a positive depth, their extremes, the
  // median of the views' medians, and each view's largest pixel (the median of these bounds the
  // usable depths).
  std::size_t input_pixels = 0;
  float input_min = 0.0f, input_max = 0.0f, input_median = 0.0f;
  std::vector<float> view_maxima;
};

// Reads every view in turn, cuts it into superpixels and appends its superpixel particles, then
// drops its images: only one view is held at a time. Sets depth_range_max from the views'
// largest depths as reading them all at once would. Prints per-view progress.
Scaffold read_scaffold(int view_count, const ViewSource& read);

// Filters the superpixel-level model on the union of all views and removes the points without
// support, with the run's superpixel-level options (the fixed level: tiles have no whole model to
// judge the visible share by).
void filter_scaffold(Scaffold& scaffold, const FilterOptions& filter, const SupportFilterOptions& support);

// The depth and normal images the scaffold gives view `view` (its own superpixel particles drawn
// as planes), from which that view's fine particles start.
void scaffold_images(const Scaffold& scaffold, int view, CMatrix<float>& depth, CMatrix<float3>& normal_map);

// Where the fine particles would start, view by view, without reading any view: every
// sample_stride-th pixel in x and y (each sample standing for sample_stride squared particles),
// the box of each view's starting positions and each view's particle count.
struct FineStarts {
  std::vector<float3> samples;
  int sample_stride = 1;
  std::vector<SpaceBox> view_boxes;
  std::vector<std::uint64_t> view_particles;
};
FineStarts fine_starts(const Scaffold& scaffold, int sample_stride);
