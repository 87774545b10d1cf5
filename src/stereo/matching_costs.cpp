#include "src/stereo/matching_costs.h"

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <iostream>
#include <omp.h>
#include <stdexcept>
#include <string>
#include <vector>

#include "ketra/algorithms/conversion.h"
#include "ketra/check_error.h"
#include "ketra/dump.h"
#include "ketra/tools.h"
#include "src/core/settings.h"
#include "src/render/device_arrays.h"
#include "src/render/point_batches.h"
#include "src/stereo/depthmap_estimation_kernels.h"
#include "src/stereo/sweep_geometry.h"

using namespace depthmap_estimation_kernels;

namespace {

void bind(device::Texture<uchar4, device::ReadMode::NormalizedFloat>& texture, device::FilterMode filter,
          ketra::Array<uchar4, 2> const& a) {
  texture.filter = filter;
  std::size_t offset = 0;
  device::bindTexture2D(&offset, texture, a.data, a.extents.x, a.extents.y, a.pitch.y);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  if (offset != 0) throw std::runtime_error("add_matching_costs: texture offset is not 0");
}

void check_sizes(char const* function, ketra::Array<float, 4> const& costs, ketra::Array<uchar4, 2> const& ref_img,
                 ketra::Array<uchar4, 2> const& img) {
  const auto same = [&](ketra::Array<uchar4, 2> const& i) {
    return i.extents.x == costs.extents.x && i.extents.y == costs.extents.y;
  };
  if (!same(ref_img) || !same(img) || costs.extents.w != 2)
    throw std::runtime_error(std::string(function) + ": the cost volume " +
                             ketra::internal::str_extents(costs.extents) + " does not fit the images " +
                             ketra::internal::str_extents(ref_img.extents) + " and " +
                             ketra::internal::str_extents(img.extents));
}

// a and step of the inverse-depth labels.
struct Labels {
  float a, step;
};
Labels labels_of(ketra::Array<float, 4> const& costs, float depth_first, float depth_last) {
  const float a = 1.0f / depth_first;
  return {a, (1.0f / depth_last - a) / static_cast<float>(costs.extents.z - 1)};
}

// The 7-tap smoothing table that the window means once used; printed, used by nothing.
void print_gaussian() {
  float taps[7];
  for (int i = 0; i <= 3; ++i)
    taps[3 - i] = taps[3 + i] = static_cast<float>(std::exp(-i * i * 0.03125) / 10.026513098524001);
  float sum = 0.0f;
  for (float t : taps) sum += t;
  std::cout << "gaussian ";
  for (float& t : taps) std::cout << (t /= sum) << " ";
}

// The dumps of label 0, when the debug directory exists (nothing creates it).
void dump_first_label(ketra::Array<float, 4> const& costs, ketra::Array<uchar4, 2> const& warped,
                      ketra::Array<float4, 2> const& warped_mean) {
  const std::string dir = output_directory + "/debug/";
  if (!std::filesystem::is_directory(dir)) return;
  ketra::Array<float, 3> planes = allocate_pitched<float, 3>(warped.extents.x, warped.extents.y, 4);
  ketra::convert(planes, warped, false);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  ketra::writeArrayToFile(planes, dir + "debug_image_warped.dat");
  ketra::convert(planes, warped_mean);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  ketra::writeArrayToFile(planes, dir + "debug_image_warped_mean.dat");
  ketra::freeArray(planes);
  ketra::Array<float, 4> sums = ketra::block(costs, ketra::Range(), ketra::Range(), ketra::Range(0, 0), ketra::Range(0, 0));
  ketra::writeArrayToFile(ketra::internal::decreaseArrayDimension<float, 4, 3>(sums), dir + "debug_ncc.dat");
}

// The per-label scratch arrays of one chain: the warped image, its row sums and window means.
struct LabelScratch {
  ketra::Array<uchar4, 2> warped;
  ketra::Array<ushort4, 2> row_sums;
  ketra::Array<float4, 2> warped_mean;
  LabelScratch() = default;
  LabelScratch(unsigned int W, unsigned int H)
      : warped(allocate_pitched<uchar4, 2>(W, H, 1)),
        row_sums(allocate_pitched<ushort4, 2>(W, H, 1)),
        warped_mean(allocate_pitched<float4, 2>(W, H, 1)) {}
  void release() {
    ketra::freeArray(warped);
    ketra::freeArray(row_sums);
    ketra::freeArray(warped_mean);
  }
};

}  // namespace

void add_matching_costs(ketra::Array<float, 4>& costs, ketra::Array<uchar4, 2> const& ref_img,
                        ketra::Array<uchar4, 2> const& img, float depth_first, float depth_last, float fx, float fy,
                        float cx, float cy, ProjectionMatrix P, MatchingCostsMetric metric) {
  check_sizes("add_matching_costs", costs, ref_img, img);
  bind(ref_img_tex, device::FilterMode::Point, ref_img);
  bind(img_tex, device::FilterMode::Linear, img);
  const Labels labels = labels_of(costs, depth_first, depth_last);
  const unsigned int W = costs.extents.x, H = costs.extents.y, label_groups = device::blocksFor(costs.extents.z, 16);
  if (metric == SAD)
    add_matching_costs_SAD_kernel<true, 16>(
        {device::Dim3(device::blocksFor(W, 32), device::blocksFor(H, 4), label_groups), device::Dim3(32, 4)}, costs,
        labels.a, labels.step, 1.0f / fx, 1.0f / fy, cx, cy, P);
  else if (metric == NCC)
    add_matching_costs_NCC_kernel<true, 16, 16, 1, 1, 3>(
        {device::Dim3(device::blocksFor(W, 16), H, label_groups), device::Dim3(16, 1)}, costs, labels.a, labels.step,
        1.0f / fx, 1.0f / fy, cx, cy, P);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::unbindTexture(ref_img_tex);
  device::unbindTexture(img_tex);
}

void add_matching_costs2(ketra::Array<float, 4>& costs, ketra::Array<uchar4, 2> const& ref_img,
                         ketra::Array<uchar4, 2> const& img, float depth_first, float depth_last, float fx, float fy,
                         float cx, float cy, ProjectionMatrix P, MatchingCostsMetric) {
  check_sizes("add_matching_costs2", costs, ref_img, img);
  const unsigned int W = costs.extents.x, H = costs.extents.y;
  const int L = static_cast<int>(costs.extents.z);
  bind(ref_img_tex, device::FilterMode::Point, ref_img);
  bind(img_tex, device::FilterMode::Linear, img);
  // The labels' chains of kernels are independent (each writes its own label of the volume), so
  // they run side by side, one chain per thread with scratch arrays of its own.
  const int chains = omp_get_max_threads();
  std::vector<LabelScratch> scratch(static_cast<std::size_t>(chains));
  for (LabelScratch& s : scratch) s = LabelScratch(W, H);
  ketra::Array<float4, 2> ref_mean = allocate_pitched<float4, 2>(W, H, 1);
  print_gaussian();

  const LaunchShape pixels = render_launch::pixel_shape(W, H);
  add_matching_costs_mean_kernel1<32, 4, 3>(pixels, scratch[0].row_sums, ref_img);
  add_matching_costs_mean_kernel2<3>(pixels, ref_mean, scratch[0].row_sums);
  const Labels labels = labels_of(costs, depth_first, depth_last);
  const SweepCamera camera{1.0f / fx, 1.0f / fy, cx, cy, P};
  auto run_label = [&](LabelScratch& s, int l, bool dump) {
    add_matching_costs_warp_kernel(pixels, s.warped, label_depth<true>(labels.a, labels.step, l), camera.inv_fx,
                                   camera.inv_fy, cx, cy, P, fx);
    add_matching_costs_mean_kernel1<32, 4, 3>(pixels, s.row_sums, s.warped);
    add_matching_costs_mean_kernel2<3>(pixels, s.warped_mean, s.row_sums);
    if (dump) dump_first_label(costs, s.warped, s.warped_mean);  // before this view's label 0 is added
    add_matching_costs_NCC_kernel2<32, 4, 3>(pixels, costs, ref_img, ref_mean, s.warped, s.warped_mean, l);
    return device::getLastError();
  };
  device::Error error = L > 0 ? run_label(scratch[0], 0, true) : device::Success;
#pragma omp parallel for schedule(dynamic) num_threads(chains)
  for (int l = 1; l < L; ++l) {
    if (const device::Error e = run_label(scratch[static_cast<std::size_t>(omp_get_thread_num())], l, false);
        e != device::Success) {
#pragma omp critical
      error = e;
    }
  }
  if (error != device::Success) device::setLastError(error);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  device::unbindTexture(ref_img_tex);
  device::unbindTexture(img_tex);
  for (LabelScratch& s : scratch) s.release();
  ketra::freeArray(ref_mean);
}
