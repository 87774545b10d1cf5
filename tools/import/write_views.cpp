#include "tools/import/write_views.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <sstream>

#include "formats/depth_png.h"
#include "image/CTensor.h"
#include "tools/cli/shell_quote.h"
#include "tools/import/depth_array.h"
#include "tools/import/depth_scaling.h"
#include "tools/import/import_error.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/scene_files.h"

namespace importer {
namespace {

namespace fs = std::filesystem;

struct DepthImage {
  int width = 0, height = 0;
  std::vector<double> depth;  // source length units, 0 = none
};

// The image readers' own texts name the file; others get it in front.
[[noreturn]] void reader_failed(const std::string& path, const std::string& what) {
  if (what.find(path) != std::string::npos) throw ImportError(what);
  fail(path, what);
}

void require_file(const std::string& path, const char* what) {
  if (!fs::is_regular_file(path)) fail(path, std::string("no such ") + what);
}

DepthImage load_depth(const SourceScene& scene, const SourceView& view, double max_depth) {
  require_file(view.depth_path, "depth map");
  DepthImage d;
  if (scene.depth_format == DepthFormat::float_array) {
    const DepthArray a = read_depth_array(view.depth_path);
    d.width = a.width;
    d.height = a.height;
    d.depth.assign(a.values.begin(), a.values.end());
    for (double& v : d.depth)
      if (!(std::isfinite(v) && v > 0)) v = 0;
  } else {
    CMatrix<unsigned short> png;
    try {
      png = read_depth_png(view.depth_path);
    } catch (const std::runtime_error& e) {
      reader_failed(view.depth_path, e.what());
    }
    d.width = png.xSize;
    d.height = png.ySize;
    d.depth.resize(png.size());
    for (size_t i = 0; i < png.size(); ++i) d.depth[i] = png.data[i] / scene.depth_scale;
  }
  if (view.width > 0 && (d.width != view.width || d.height != view.height))
    fail(view.depth_path, "depth map is " + std::to_string(d.width) + " x " + std::to_string(d.height) +
                              " pixels, its camera " + std::to_string(view.width) + " x " +
                              std::to_string(view.height));
  if (max_depth > 0)
    for (double& v : d.depth)
      if (v > max_depth) v = 0;
  return d;
}

// The colour image must be one quillara reads, in colour, of the depth map's size: a different
// size would make quillara rescale the intrinsics away from the depth map.
void check_colour(const std::string& path, int width, int height) {
  require_file(path, "colour image");
  CTensor<float> image;
  try {
    image.readFromImage(path.c_str());
  } catch (const std::runtime_error& e) {
    reader_failed(path, e.what());  // EInvalidFileFormat included: it carries the reader's text
  }
  if (image.zSize != 3 && image.zSize != 4) fail(path, "not a colour image");
  if (image.xSize != width || image.ySize != height)
    fail(path, "colour image is " + std::to_string(image.xSize) + " x " + std::to_string(image.ySize) +
                   " pixels but its depth map " + std::to_string(width) + " x " + std::to_string(height));
}

std::string absolute(const std::string& path) { return fs::absolute(path).lexically_normal().string(); }

void require_no_white_space(const std::string& path) {
  if (path.find_first_of(" \t\n\r\f\v") != std::string::npos)
    fail(path, "the path contains white space, which a view file cannot hold");
}

// Depth figures over all views; the median comes from an even sample of each view's pixels.
struct DepthStatistics {
  double smallest = std::numeric_limits<double>::infinity(), largest = 0;
  uint64_t count = 0;
  std::vector<double> samples;

  void add(const std::vector<double>& depth) {
    const size_t stride = std::max<size_t>(1, depth.size() / 10000);
    for (size_t i = 0; i < depth.size(); ++i) {
      const double v = depth[i];
      if (v <= 0) continue;
      smallest = std::min(smallest, v);
      largest = std::max(largest, v);
      ++count;
      if (i % stride == 0) samples.push_back(v);
    }
  }
  double median() {
    if (samples.empty()) return 0;
    std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
    return samples[samples.size() / 2];
  }
};

std::vector<const SourceView*> selected_views(const SourceScene& scene, int every) {
  std::vector<const SourceView*> views;
  for (size_t i = 0; i < scene.views.size(); i += static_cast<size_t>(every)) views.push_back(&scene.views[i]);
  return views;
}

// The number in "view_NN.txt" or "depth_NN.png" (two or more digits), or -1 for other names.
long numbered_output(const std::string& name) {
  for (const auto& [stem, extension] : {std::pair{"view_", ".txt"}, std::pair{"depth_", ".png"}}) {
    const size_t a = std::strlen(stem), e = std::strlen(extension);
    if (name.size() < a + e + 2 || name.size() > a + e + 9 || name.compare(0, a, stem) != 0 ||
        name.compare(name.size() - e, e, extension) != 0)
      continue;
    const std::string digits = name.substr(a, name.size() - a - e);
    if (digits.find_first_not_of("0123456789") == std::string::npos) return std::stol(digits);
  }
  return -1;
}

// Removes view_NN.txt and depth_NN.png files beyond the first `keep`, left by an earlier import.
int remove_stale_files(const std::string& dir, size_t keep) {
  int removed = 0;
  for (const fs::directory_entry& e : fs::directory_iterator(dir)) {
    const long number = numbered_output(e.path().filename().string());
    if (e.is_regular_file() && number >= static_cast<long>(keep) && fs::remove(e.path())) ++removed;
  }
  return removed;
}

std::string format_number(const char* pattern, double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, pattern, v);
  return buf;
}

}  // namespace

ImportSummary write_imported_views(const SourceScene& scene, const ImportSettings& settings, std::ostream& progress) {
  const std::vector<const SourceView*> views = selected_views(scene, std::max(1, settings.every));
  if (views.size() < 2)
    fail(scene.description, std::to_string(views.size()) + " view" + (views.size() == 1 ? "" : "s") +
                                " to import; quillara needs at least 2");
  ImportSummary summary;
  summary.out_dir = absolute(settings.out_dir);
  require_no_white_space(summary.out_dir);
  std::error_code ec;
  fs::create_directories(summary.out_dir, ec);
  if (!fs::is_directory(summary.out_dir)) fail(summary.out_dir, "cannot create the output folder");

  if (scene.depth_format == DepthFormat::png16) {
    summary.scale = scale_for_integer_depths(scene.depth_scale);
  } else {
    DepthStatistics source;
    for (const SourceView* v : views) source.add(load_depth(scene, *v, settings.max_depth).depth);
    if (source.count == 0) fail(scene.description, "no depth in any depth map");
    summary.scale = scale_for_float_depths(source.largest, source.median());
  }

  DepthStatistics imported;
  for (size_t i = 0; i < views.size(); ++i) {
    const SourceView& v = *views[i];
    const DepthImage depth = load_depth(scene, v, settings.max_depth);
    const std::string colour = absolute(v.colour_path);
    require_no_white_space(colour);
    check_colour(colour, depth.width, depth.height);

    std::vector<uint16_t> thousandths(depth.depth.size());
    std::vector<double> stored(depth.depth.size());
    for (size_t p = 0; p < thousandths.size(); ++p) {
      thousandths[p] = depth_to_thousandths(summary.scale * depth.depth[p]);
      stored[p] = thousandths_to_depth(thousandths[p]);
    }
    imported.add(stored);
    const std::string depth_file = summary.out_dir + "/" + scene::depth_file_name(static_cast<int>(i));
    write_depth_png(depth_file, depth.width, depth.height, thousandths);

    scene::SceneCamera camera;
    camera.width = depth.width;
    camera.height = depth.height;
    camera.fx = v.intrinsics.fx;
    camera.fy = v.intrinsics.fy;
    camera.cx = v.intrinsics.cx;
    camera.cy = v.intrinsics.cy;
    camera.R = v.pose.R;
    camera.t = summary.scale * v.pose.t;
    const std::string view_file = summary.out_dir + "/" + scene::view_file_name(static_cast<int>(i));
    write_view_file(view_file, scene::make_view_file(camera, colour, depth_file));
    summary.view_files.push_back(view_file);
    const size_t with_depth = std::count_if(stored.begin(), stored.end(), [](double d) { return d > 0; });
    progress << "  " << scene::view_file_name(static_cast<int>(i)) << "  " << v.name << "  " << depth.width << " x "
             << depth.height << ", " << with_depth << " depths" << std::endl;
  }
  if (imported.count == 0) fail(scene.description, "no depth left in any view");
  summary.depth_pixels = imported.count;
  summary.smallest_depth = imported.smallest;
  summary.largest_depth = imported.largest;
  summary.median_depth = imported.median();
  summary.removed_files = remove_stale_files(summary.out_dir, views.size());
  return summary;
}

std::string format_import_summary(const SourceScene& scene, const ImportSummary& s) {
  std::ostringstream out;
  out << "quillara-import: " << s.view_files.size() << " views from " << scene.description << " in " << s.out_dir
      << "\n";
  for (const std::string& note : scene.notes) out << "  " << note << "\n";
  if (s.removed_files > 0) out << "  removed " << s.removed_files << " files of an earlier import\n";
  out << "  depths: " << s.depth_pixels << " pixels from " << format_number("%.4g", s.smallest_depth) << " to "
      << format_number("%.4g", s.largest_depth) << ", median " << format_number("%.4g", s.median_depth) << "\n";
  if (s.scale == 1) out << "  scale: 1 (lengths as in the source)\n";
  else
    out << "  scale: " << format_number("%g", s.scale) << " (every length of the view files is "
        << format_number("%g", s.scale) << " times the source's; divide the model by it for source units)\n";
  out << "Next:\n  quillara --out-dir " << shell_quote(s.out_dir + "/model") << " --depth-avg "
      << format_number("%.4g", s.median_depth) << " -- " << shell_quote(s.out_dir) << "/view_*.txt\n";
  if (s.view_files.size() < 5)
    out << "  (with fewer than 5 views, add --min-support-sp 1 --min-support 1: support counts confirming views)\n";
  return out.str();
}

}  // namespace importer
