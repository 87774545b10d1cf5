#include "src/app/preview.h"

#include <cfloat>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "ketra/image_export.h"
#include "ketra/tools.h"
#include "src/render/points.h"
#include "src/render/render_buffer.h"
#include "src/app/run_error.h"
#include "src/render/render_points.h"

namespace {

// Copies a device image into columns [x0, x0 + width) of the host panel.
void copy_into_panel(ketra::Array<uchar4, 2>& panel, const ketra::Array<uchar4, 2>& image, unsigned int x0) {
  ketra::Array<uchar4, 4> panel4 = ketra::internal::as4D(panel);
  ketra::Array<uchar4, 4> column4 =
      ketra::block(panel4, ketra::Range(static_cast<int>(x0), static_cast<int>(x0 + image.extents.x) - 1));
  ketra::Array<uchar4, 2> column = ketra::internal::decreaseArrayDimension<uchar4, 4, 2>(column4);
  ketra::arrayCopy(column, image);
}

std::string view_file_name(int index) {
  char name[32];
  std::snprintf(name, sizeof name, "view_%02d.png", index);
  return name;
}

}  // namespace

void check_preview_directory(const std::string& directory, int views) {
  std::error_code ec;
  if (std::filesystem::exists(directory, ec) && !std::filesystem::is_directory(directory, ec))
    throw RunError("cannot write previews to \"" + directory + "\": it exists and is not a directory");
  for (int i = 0; i < views; ++i) {
    const std::string path = directory + "/" + view_file_name(i);
    if (std::filesystem::is_directory(path, ec))
      throw RunError("cannot write preview image \"" + path + "\": it is a directory");
  }
}

int write_preview_images(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                         const std::string& directory) {
  std::error_code ec;
  std::filesystem::create_directories(directory, ec);
  if (ec) throw RunError("cannot create preview directory \"" + directory + "\": " + ec.message());
  // An empty model leaves the two model panels black.
  Points points{};
  if (!particles.empty()) points = createPoints(particles, offsets, normals);
  int written = 0;
  for (const Camera* camera : cameras) {
    const auto W = static_cast<unsigned int>(camera->width), H = static_cast<unsigned int>(camera->height);
    CMatrix<uchar4> panel_pixels(static_cast<int>(3 * W), static_cast<int>(H), make_uchar4(0, 0, 0, 255));
    ketra::Array<uchar4, 2> panel = ketra::arrayFromHostMemory(panel_pixels.data, 3 * W, H);
    CMatrix<uchar4> input = camera->image;  // the host array view below needs a mutable pointer
    copy_into_panel(panel, ketra::arrayFromHostMemory(input.data, W, H), 0);
    if (!particles.empty()) {
      RenderBuffer rb = createRenderBuffer(camera->width, camera->height);
      render_points(rb, points, *camera, rendering_depth_tolerance, 0.0f, FLT_MAX, 1.0f);
      copy_into_panel(panel, rb.image, W);
      shade_normals(rb);
      copy_into_panel(panel, rb.image, 2 * W);
      freeRenderBuffer(rb);
    }
    const std::string path = directory + "/" + view_file_name(camera->index);
    try {
      saveImageToPNG(panel, path);
    } catch (const std::runtime_error& e) {
      throw RunError("cannot write preview image \"" + path + "\": " + e.what());
    }
    std::cout << " preview " << path << "\n";
    ++written;
  }
  if (!particles.empty()) freePoints(points);
  return written;
}
