#pragma once

#include <string>
#include <vector>

#include "tools/scene/render_view.h"
#include "tools/scene/scene_camera.h"

// The generated scene written once more in the layouts of other tools, beside the view files, so
// that importers can be checked against the native views of the very same scene.
namespace scene {

enum class Layout {
  none,
  colmap_text,  // sparse/{cameras,images,points3D}.txt, images/, stereo/depth_maps/*.{geometric,photometric}.bin
  colmap_bin,   // the same with the binary sparse model
  tum,          // rgb.txt, depth.txt, groundtruth.txt, rgb/*.jpg, depth/*.png in 1/5000
  log,          // color/*.png, depth/*.png in thousandths, trajectory.log
};

// "colmap-text", "colmap-bin", "tum", "log"; false for anything else.
bool parse_layout(const std::string& name, Layout& layout);

// Depth image units per length unit of the RGB-D sequence layout.
constexpr double tum_depth_scale = 5000.0;

// Timestamps of view i in the RGB-D sequence layout: colour, and depth a few milliseconds later.
double tum_colour_time(int view);
double tum_depth_time(int view);

// Writes the per-view files of view `index` into dir (subfolders are created).
void write_layout_view(Layout layout, const std::string& dir, int index, const RenderedView& view);

// Writes the files that list all views (sparse model, lists, trajectory) into dir.
void write_layout_index(Layout layout, const std::string& dir, const std::vector<SceneCamera>& cameras);

}  // namespace scene
