#include "tools/depth/depth_views.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "formats/depth_png.h"
#include "formats/text_file.h"
#include "src/io/view_camera.h"

namespace depth_tool {
namespace {

// The range of the non-zero depths of an existing depth map of the image's size.
void read_depth_range(DepthView& v) {
  const std::string& path = v.view.depth_path;
  if (!std::filesystem::exists(path)) return;
  CMatrix<unsigned short> raw;
  read_named_file(v.file, "depth map ", path, [&] { raw = read_depth_png(path); });
  if (raw.xSize != v.camera.width || raw.ySize != v.camera.height)
    throw ViewFileError(v.file, "the depth map \"" + path + "\" is " + std::to_string(raw.xSize) + " x " +
                                    std::to_string(raw.ySize) + " but the colour image is " +
                                    std::to_string(v.camera.width) + " x " + std::to_string(v.camera.height));
  unsigned short lo = 65535, hi = 0;
  for (std::size_t i = 0; i < raw.size(); ++i)
    if (raw.data[i] != 0) lo = std::min(lo, raw.data[i]), hi = std::max(hi, raw.data[i]);
  if (hi == 0) return;
  v.has_depth_range = true;
  v.depth_min = static_cast<float>(thousandths_to_depth(lo));
  v.depth_max = static_cast<float>(thousandths_to_depth(hi));
}

}  // namespace

DepthView read_depth_view(const std::string& file, int index, bool read_depth) {
  DepthView v;
  v.file = file;
  v.view = read_view_file(file);
  v.camera = camera_from_view_file(v.view, index);
  read_named_file(file, "colour image ", v.view.image_path, [&] { v.camera.loadImage(); });
  if (read_depth) read_depth_range(v);
  return v;
}

void write_depth_map(const std::string& path, const CMatrix<float>& depth) {
  std::vector<uint16_t> values(depth.size());
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = depth_to_thousandths(depth.data[i]);
  try {
    write_depth_png(path, depth.xSize, depth.ySize, values);
  } catch (const std::exception& e) {
    throw FileError(path, e.what());
  }
}

}  // namespace depth_tool
