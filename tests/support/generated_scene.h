#pragma once

// A scene written by the generator for an end-to-end run: its view files in order and the average
// depth to pass as --depth-avg.

#include <string>
#include <vector>

#include "tests/support/run_process.h"
#include "tools/scene/scene_files.h"

namespace e2e {

struct GeneratedScene {
  std::string dir, average_depth;
  std::vector<std::string> view_files;
};

// Options of the sample scene in dir: `views` views of width x height pixels, the rest as the
// generator's defaults.
inline scene::SceneOptions scene_options(const std::string& dir, int views, int width, int height) {
  scene::SceneOptions options;
  options.out_dir = dir;
  options.views = views;
  options.width = width;
  options.height = height;
  return options;
}

// Options of a small scene in dir (8 views of 160 x 120 by default) with a sparse ground truth:
// quick to write and to fuse in the end-to-end tests.
inline scene::SceneOptions small_scene(const std::string& dir, int views = 8) {
  scene::SceneOptions options = scene_options(dir, views, 160, 120);
  options.ground_truth_stride = 160;
  return options;
}

// Writes the scene its arrangement names (the sample scene on a ring by default) with `options`
// (out_dir included) and lists its first `views` view files, all of them when `views` is 0.
inline GeneratedScene generate_scene(const scene::SceneOptions& options, int views = 0) {
  GeneratedScene s;
  s.dir = options.out_dir;
  scene::write_scene(scene::make_scene(options), options);
  s.average_depth = average_depth(s.dir);
  for (int v = 0; v < (views > 0 ? views : options.views); ++v)
    s.view_files.push_back(s.dir + "/" + scene::view_file_name(v));
  return s;
}

}  // namespace e2e
