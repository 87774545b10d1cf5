#include "src/app/scene_input.h"

#include <algorithm>
#include <cmath>
#include <iostream>

#include "formats/depth_png.h"
#include "src/core/settings.h"
#include "src/io/view_camera.h"

namespace {

// The command line has no switches for the depth limits: the minimum counts as given in every
// run (so its statistic never replaces the -1 that the lower depth limit relies on), the
// maximum as never given.
constexpr bool kMinimumDepthGiven = true;
constexpr bool kMaximumDepthGiven = false;

float smallest_pixel(const CMatrix<float>& m) {
  if (m.size() == 0) return 0.0f;
  float v = m.data[0];
  for (std::size_t i = 1; i < m.size(); ++i)
    if (m.data[i] < v) v = m.data[i];
  return v;
}

float largest_pixel(const CMatrix<float>& m) {
  if (m.size() == 0) return 0.0f;
  float v = m.data[0];
  for (std::size_t i = 1; i < m.size(); ++i)
    if (m.data[i] > v) v = m.data[i];
  return v;
}

// Element at position size / 2 of the sorted order; the vector is partly reordered.
float middle_element(std::vector<float>& values) {
  std::nth_element(values.begin(), values.begin() + values.size() / 2, values.end());
  return values[values.size() / 2];
}

float median_of(const std::vector<CMatrix<float>>& depthmaps, float (*per_view)(const CMatrix<float>&)) {
  std::vector<float> values;
  values.reserve(depthmaps.size());
  for (const CMatrix<float>& m : depthmaps) values.push_back(per_view(m));
  return middle_element(values);
}

// The colour image must have the stated size, or a size of the same shape (the intrinsics are
// then scaled to it), and the depth map the colour image's size: every later stage indexes the
// colour image by depth-map pixel.
void check_sizes(const std::string& file, const ViewFile& view, const CMatrix<uchar4>& image,
                 const CMatrix<unsigned short>& depth) {
  const auto size = [](int w, int h) { return std::to_string(w) + " x " + std::to_string(h); };
  const bool same_shape = static_cast<long long>(view.width) * image.ySize ==
                          static_cast<long long>(view.height) * image.xSize;
  if (!same_shape)
    throw ViewFileError(file, "states a size of " + size(view.width, view.height) + " but the colour image \"" +
                                  view.image_path + "\" is " + size(image.xSize, image.ySize));
  if (depth.xSize != image.xSize || depth.ySize != image.ySize)
    throw ViewFileError(file, "the depth map \"" + view.depth_path + "\" is " + size(depth.xSize, depth.ySize) +
                                  " but the colour image \"" + view.image_path + "\" is " +
                                  size(image.xSize, image.ySize));
}

}  // namespace

void read_view(const std::string& file, int index, Camera& camera, CMatrix<float>& depthmap,
               std::string* depth_path) {
  const ViewFile view = read_view_file(file);
  camera = camera_from_view_file(view, index);
  if (depth_path != nullptr) *depth_path = view.depth_path;
  CMatrix<unsigned short> raw;
  read_named_file(file, "depth map ", view.depth_path, [&] { raw = read_depth_png(view.depth_path); });
  read_named_file(file, "colour image ", view.image_path, [&] { camera.image = loadImage(view.image_path); });
  check_sizes(file, view, camera.image, raw);
  depthmap.setSize(raw.xSize, raw.ySize);
  for (std::size_t i = 0; i < raw.size(); ++i) depthmap.data[i] = static_cast<float>(thousandths_to_depth(raw.data[i]));

  camera.loadImage();  // the image is there: this brings K, width and height in line with it
}

void read_views(const std::vector<std::string>& files, std::vector<Camera>& cameras,
                std::vector<Camera*>& camera_ptrs, std::vector<CMatrix<float>>& depthmaps,
                std::vector<std::string>* depth_paths) {
  if (depth_paths != nullptr) depth_paths->assign(files.size(), std::string());
  cameras.assign(files.size(), Camera());
  camera_ptrs.assign(files.size(), nullptr);
  depthmaps.assign(files.size(), CMatrix<float>());
  for (std::size_t i = 0; i < files.size(); ++i) {
    std::cout << "Reading file " << files[i] << std::endl;
    camera_ptrs[i] = &cameras[i];
    read_view(files[i], static_cast<int>(i), cameras[i], depthmaps[i],
              depth_paths != nullptr ? &(*depth_paths)[i] : nullptr);
  }
  if (files.empty()) return;

  if (!kMinimumDepthGiven) {
    depth_range_min = median_of(depthmaps, smallest_pixel);
    std::cout << "minimum depth = " << static_cast<double>(depth_range_min) << std::endl;
  }
  if (!kMaximumDepthGiven) {
    depth_range_max = median_of(depthmaps, largest_pixel);
    std::cout << "maximum depth = " << static_cast<double>(depth_range_max) << std::endl;
  }
}

float superpixel_radius(int width, int height, int count) {
  const int area = width * height;
  const float per_superpixel = static_cast<float>(area) / static_cast<float>(count);
  return static_cast<float>(std::sqrt(static_cast<double>(per_superpixel) / 3.141592653589793));
}

float pixel_radius(float k, float avg_depth, float fx) { return k * avg_depth / fx; }
