#include "src/io/read_view.h"

#include "formats/depth_png.h"
#include "formats/view_file.h"
#include "src/io/view_camera.h"

namespace {

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

