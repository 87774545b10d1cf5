#include "tools/depth/run_depth.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>

#include "device/memory.h"
#include "formats/text_file.h"
#include "src/core/settings.h"
#include "tools/cli/shell_quote.h"
#include "tools/depth/depth_views.h"
#include "tools/depth/estimate_depthmap.h"
#include "tools/depth/neighbour_views.h"

namespace depth_tool {
namespace {

namespace fs = std::filesystem;

// The range swept for a view: the option, or the view's input depths widened by 5 %.
void depth_range(const DepthOptions& o, const DepthView& v, float& near, float& far) {
  if (o.range_given) {
    near = o.near, far = o.far;
    return;
  }
  if (!v.has_depth_range)
    throw ViewFileError(v.file, "the depth map \"" + v.view.depth_path +
                                    "\" does not exist or holds no depth; give the depths to try with "
                                    "--depth-range NEAR,FAR");
  near = 0.95f * v.depth_min, far = 1.05f * v.depth_max;
}

// Every view in order, all of the first view's size, and no two with one output name.
std::vector<DepthView> read_views(const DepthOptions& o, std::ostream& out) {
  std::vector<DepthView> views;
  std::map<std::string, std::string> names;
  for (const std::string& file : o.views) {
    out << "Reading view file " << file << std::endl;
    DepthView& v = views.emplace_back(read_depth_view(file, static_cast<int>(views.size()), !o.range_given));
    const std::string name = fs::path(file).filename().string();
    if (auto [it, fresh] = names.emplace(name, file); !fresh)
      throw ViewFileError(file, "its output \"" + name + "\" would replace that of \"" + it->second + "\"");
    const Camera& first = views.front().camera;
    if (v.camera.width != first.width || v.camera.height != first.height)
      throw ViewFileError(file, "the colour image is " + std::to_string(v.camera.width) + " x " +
                                    std::to_string(v.camera.height) + " but that of the first view is " +
                                    std::to_string(first.width) + " x " + std::to_string(first.height) +
                                    "; all views need one size");
    std::error_code ec;
    if (fs::equivalent(file, fs::path(o.out_dir) / name, ec))
      throw ViewFileError(file, "the output directory holds it; choose another -o DIR");
    float near, far;
    depth_range(o, v, near, far);
  }
  return views;
}

std::string depth_file_name(const std::string& view_file) { return fs::path(view_file).stem().string() + "_depth.png"; }

double median(std::vector<float> v) {
  if (v.empty()) return 0;
  std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
  return v[v.size() / 2];
}

}  // namespace

void run_depth(const DepthOptions& o, std::ostream& out) {
  const auto start = std::chrono::steady_clock::now();
  std::error_code ec;
  fs::create_directories(o.out_dir, ec);
  if (!fs::is_directory(o.out_dir)) throw FileError(o.out_dir, "the output directory cannot be created");
  // The chain's array dumps go to DIR/debug/ when the user made that folder; the last view's stay.
  output_directory = o.out_dir;
  debug_depthmap = fs::is_directory(fs::path(o.out_dir) / "debug");
  const std::vector<DepthView> views = read_views(o, out);
  std::vector<Camera> cameras;
  for (const DepthView& v : views) cameras.push_back(v.camera);

  long pixels = 0, with_depth = 0;
  std::vector<float> samples;  // every 97th depth found, for the median
  const int n = static_cast<int>(views.size());
  for (int i = 0; i < n; ++i) {
    float near, far;
    depth_range(o, views[i], near, far);
    const float middle = 2.0f / (1.0f / near + 1.0f / far);  // halfway in inverse depth
    const std::vector<int> chosen = choose_neighbours(cameras, i, o.neighbours, middle);
    out << "View " << i + 1 << " of " << n << ": " << views[i].file << ", depths " << near << " to " << far;
    if (chosen.empty()) {
      out << ": no neighbouring view (axes within 60 degrees, a baseline of at least 1 degree); skipped" << std::endl;
      continue;
    }
    out << ", neighbours";
    std::vector<const Camera*> neighbours;
    for (int j : chosen) neighbours.push_back(&cameras[j]), out << " " << fs::path(views[j].file).filename().string();
    // The correlation prints its table of taps per neighbour, with no line end, on a line of its own.
    const bool taps = o.costs == Costs::ncc;
    out << (taps ? "\n  " : "") << std::flush;
    const DepthEstimate e = estimate_depthmap(cameras[i], neighbours, near, far, o);
    device::reset();

    const std::string name = fs::path(views[i].file).filename().string();
    // Absolute, as relative paths in view files are taken from the working directory.
    const std::string depth_path = fs::absolute(fs::path(o.out_dir) / depth_file_name(name)).lexically_normal().string();
    write_depth_map(depth_path, e.depth);
    ViewFile view = views[i].view;
    view.depth_path = depth_path;
    write_view_file((fs::path(o.out_dir) / name).string(), view);
    const long total = static_cast<long>(e.depth.size());
    pixels += total, with_depth += e.pixels_with_depth;
    for (std::size_t p = 0; p < e.depth.size(); p += 97)
      if (e.depth.data[p] > 0) samples.push_back(e.depth.data[p]);
    out << "\n  cost volume " << e.cost_seconds << " s, matching " << e.sgm_seconds << " s; depth at "
        << e.pixels_with_depth << " of " << total << " pixels; wrote " << depth_path << std::endl;
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  std::ostringstream share;
  share.precision(3);
  share << (pixels > 0 ? 100.0 * static_cast<double>(with_depth) / static_cast<double>(pixels) : 0.0);
  out << "quillara-depth: " << n << " views in " << seconds << " s; depth at " << share.str() << " % of the pixels\n"
      << "  view files and depth maps in " << o.out_dir << "\n"
      << "  next: quillara --out-dir " << shell_quote((fs::path(o.out_dir) / "model").string()) << " --depth-avg "
      << median(samples) << " -- " << shell_quote((fs::path(o.out_dir) / "").string()) << "*.txt" << std::endl;
}

}  // namespace depth_tool
