#include "tools/depth/run_depth.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>

#include "formats/text_file.h"
#include "image/png_io.h"
#include "src/core/settings.h"
#include "tools/cli/shell_quote.h"
#include "tools/depth/depth_consistency.h"
#include "tools/depth/depth_jumps.h"
#include "tools/depth/depth_views.h"
#include "tools/depth/local_texture.h"
#include "tools/depth/seconds_since.h"
#include "tools/depth/view_estimate.h"
#include "tools/depth/view_geometry.h"

namespace depth_tool {
namespace {

namespace fs = std::filesystem;

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
std::string agreement_file_name(const std::string& view_file) {
  return fs::path(view_file).stem().string() + "_agreeing.png";
}

double median(std::vector<float> v) {
  if (v.empty()) return 0;
  std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
  return v[v.size() / 2];
}

// View files are words separated by white space: a depth path holding a blank cannot be read back.
void check_output_directory(const std::string& dir) {
  const std::string absolute = fs::absolute(dir).lexically_normal().string();
  if (absolute.find_first_of(" \t\n\r\v\f") != std::string::npos)
    throw FileError(dir, "its path \"" + absolute +
                             "\" holds white space, which the view files written there cannot hold; choose another -o DIR");
}

// Keeps the depths that at least o.consistent other views' maps confirm, or all the views that could
// see them where fewer could (one at least); every view's verdicts are taken from the maps as
// matched, before any is thinned.
void keep_consistent(const DepthOptions& o, const std::vector<Camera>& cameras, std::vector<ViewDepth>& results,
                     std::ostream& out) {
  const auto t0 = std::chrono::steady_clock::now();
  std::vector<ViewGeometry> geometry;
  std::vector<CMatrix<float>> depths;
  for (std::size_t i = 0; i < cameras.size(); ++i) geometry.push_back(view_geometry(cameras[i]));
  for (ViewDepth& r : results) depths.push_back(r.depth);
  long kept = 0, matched = 0;
  for (std::size_t i = 0; i < results.size(); ++i) {
    ViewDepth& r = results[i];
    DepthVerdicts verdicts = judge_depths(geometry, depths, static_cast<int>(i), r.others);
    for (std::size_t p = 0; p < r.depth.size(); ++p) {
      if (!confirmed_enough(verdicts.agreeing.data[p], verdicts.seeing.data[p], o.consistent)) r.depth.data[p] = 0.0f;
      kept += r.depth.data[p] > 0.0f;
    }
    r.agreeing = std::move(verdicts.agreeing);
    matched += r.matched;
  }
  const double seconds = seconds_since(t0);
  if (o.consistent == 0)
    out << "Consistency: all " << matched << " depths kept (--consistent 0), agreeing views counted in " << seconds
        << " s" << std::endl;
  else
    out << "Consistency: " << kept << " of " << matched << " depths confirmed by at least " << o.consistent
        << " other view" << (o.consistent == 1 ? "" : "s") << " (or all that could see them, one at least) in "
        << seconds << " s" << std::endl;
}

// The depths beside a jump to a farther surface, on its near side, are mostly the near surface
// grown past its outline; they go after the check so that they still confirm other views.
void drop_near_sides(std::vector<ViewDepth>& results, std::ostream& out) {
  long dropped = 0;
  for (ViewDepth& r : results) dropped += drop_near_side_of_jumps(r.depth);
  out << "Depth jumps: " << dropped << " depths beside a farther surface dropped" << std::endl;
}

// The most confirmations, up to K, that nine in ten of the kept depths have: the printed fusion
// asks each point for about that many views' support. Where views are few, many depths stay on
// one confirmation, and asking the fused points for more would strip the surfaces only two
// views see.
int typical_confirmations(const std::vector<ViewDepth>& results, int K) {
  std::vector<long> at_least(static_cast<std::size_t>(K) + 1, 0);
  long kept = 0;
  for (const ViewDepth& r : results)
    for (std::size_t p = 0; p < r.depth.size(); ++p)
      if (r.depth.data[p] > 0) {
        ++kept;
        for (int m = 1; m <= std::min<int>(K, r.agreeing.data[p]); ++m) ++at_least[m];
      }
  int m = K;
  while (m > 0 && 10 * at_least[m] < 9 * kept) --m;
  return m;
}

// Why a run ends without a depth anywhere.
std::string why_no_depth(const DepthOptions& o, const std::vector<ViewDepth>& results) {
  bool any_matched = false, any_neighbours = false;
  for (const ViewDepth& r : results) any_neighbours |= !r.others.empty(), any_matched |= r.matched > 0;
  if (!any_neighbours)
    return "no view has a neighbouring view (optical axes within 60 degrees, a baseline that subtends at least 1 "
           "degree at the depths tried)";
  if (!any_matched)
    return "no pixel matched with a distinct depth inside the range; check that the depths tried hold the scene "
           "(--depth-range) and that there are enough of them (--labels)";
  return "no depth is confirmed by " + std::to_string(o.consistent) + " other views; lower --consistent";
}

// A file about to be written, with the system's reason when it cannot be.
void check_writable(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) throw FileError(path, std::string("cannot be written: ") + std::strerror(errno));
  std::fclose(f);
}

// Writes every view's depth map, agreement image and view file; when one cannot be written, the
// files written so far are removed again, so that a failed run leaves nothing behind.
void write_results(const DepthOptions& o, const std::vector<DepthView>& views, const std::vector<ViewDepth>& results,
                   bool created_directory) {
  std::vector<fs::path> written;
  try {
    for (std::size_t i = 0; i < views.size(); ++i) {
      const std::string name = fs::path(views[i].file).filename().string();
      // Absolute, as relative paths in view files are taken from the working directory.
      const fs::path dir = fs::absolute(o.out_dir).lexically_normal();
      const std::string depth_path = (dir / depth_file_name(name)).string();
      const std::string agreement_path = (dir / agreement_file_name(name)).string();
      const std::string view_path = (fs::path(o.out_dir) / name).string();
      for (const std::string& path : {depth_path, agreement_path, view_path}) {
        check_writable(path);
        written.push_back(path);
      }
      write_depth_map(depth_path, results[i].depth);
      const CMatrix<unsigned char> image = agreement_image(results[i].agreeing);
      try {
        png_io::write_png(agreement_path.c_str(), "quillara-depth", image.xSize, image.ySize, 1,
                          std::vector<unsigned char>(image.data, image.data + image.size()));
      } catch (const std::exception& e) {
        throw FileError(agreement_path, e.what());
      }
      ViewFile view = views[i].view;
      view.depth_path = depth_path;
      write_view_file(view_path, view);
    }
  } catch (...) {
    std::error_code ec;
    for (const fs::path& p : written) fs::remove(p, ec);
    if (created_directory) fs::remove(o.out_dir, ec);  // only when empty
    throw;
  }
}

}  // namespace

void run_depth(const DepthOptions& o, std::ostream& out) {
  const auto start = std::chrono::steady_clock::now();
  check_output_directory(o.out_dir);
  const std::vector<DepthView> views = read_views(o, out);
  std::vector<Camera> cameras;
  std::vector<CMatrix<float>> textures;
  for (const DepthView& v : views) {
    cameras.push_back(v.camera);
    textures.push_back(local_texture(v.camera.image, o.texture_radius));
  }
  // The chain's array dumps go to DIR/debug/ when the user made that folder; the last view's stay.
  output_directory = o.out_dir;
  debug_depthmap = fs::is_directory(fs::path(o.out_dir) / "debug");

  std::vector<ViewDepth> results;
  for (int i = 0; i < static_cast<int>(views.size()); ++i) results.push_back(estimate_view(o, views, cameras, textures, i, out));
  if (o.search > 0 && o.search_again > 0) search_again(o, views, cameras, textures, results, out);
  keep_consistent(o, cameras, results, out);
  drop_near_sides(results, out);

  long pixels = 0, with_depth = 0;
  std::vector<float> samples;  // every 97th depth kept, the first included, for the median
  for (const ViewDepth& r : results) {
    pixels += static_cast<long>(r.depth.size());
    for (std::size_t p = 0; p < r.depth.size(); ++p)
      if (r.depth.data[p] > 0 && with_depth++ % 97 == 0) samples.push_back(r.depth.data[p]);
  }
  if (with_depth == 0) throw std::runtime_error("no view got a depth: " + why_no_depth(o, results));

  const bool existed = fs::exists(o.out_dir);
  std::error_code ec;
  fs::create_directories(o.out_dir, ec);
  if (!fs::is_directory(o.out_dir))
    throw FileError(o.out_dir, "the output directory cannot be created: " + ec.message());
  write_results(o, views, results, !existed);

  const double seconds = seconds_since(start);
  // Estimated maps confirm stray depths more often than measured ones (the same straddling
  // window errs alike in every view), so the printed fusion asks each point for the support of
  // most of the views that see it rather than of a third, and at least for what the kept depths
  // typically showed here: that many agreeing views, each worth about 2 when it sees the surface
  // within 50 degrees (pi cos 50).
  const int confirmations = typical_confirmations(results, o.consistent);
  std::ostringstream share;
  share.precision(3);
  share << 100.0 * static_cast<double>(with_depth) / static_cast<double>(pixels);
  out << "quillara-depth: " << views.size() << " views in " << seconds << " s; depth at " << share.str()
      << " % of the pixels\n"
      << "  view files, depth maps and agreement images (NAME_agreeing.png) in " << o.out_dir << "\n"
      << "  next: quillara --out-dir " << shell_quote((fs::path(o.out_dir) / "model").string())
      << " --depth-avg " << median(samples) << " --visible-support 0.8"
      << (confirmations > 0 ? " --visible-floor " + std::to_string(2 * confirmations) : std::string()) << " -- "
      << shell_quote((fs::path(o.out_dir) / "").string()) << "*.txt" << std::endl;
}

}  // namespace depth_tool
